/// \file Threads that the interpreter ends inside a call of ours.
///
/// Up to CPython 3.13, a daemon thread that needs the interpreter's lock after the interpreter has finished is ended with
/// `pthread_exit`, which unwinds its stack. Our destructors would then touch Python objects without the lock. Newer
/// versions let such a thread wait for the end of the process, and so do we: the linker's --wrap option puts this
/// function in front of the one that the unwinder asks what to do in each C++ frame.
#ifdef SABLECREST_WRAPS_UNWINDING
#include <unistd.h>
#include <unwind.h>

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier, misc-use-internal-linkage): the linker gives them these names
_Unwind_Reason_Code __real___gxx_personality_v0(int, _Unwind_Action, _Unwind_Exception_Class, _Unwind_Exception*,
                                                _Unwind_Context*);

_Unwind_Reason_Code __wrap___gxx_personality_v0(int version, _Unwind_Action actions, _Unwind_Exception_Class type,
                                                _Unwind_Exception* exception, _Unwind_Context* context) {
    if ((actions & _UA_FORCE_UNWIND) != 0)
        while (true) pause();
    return __real___gxx_personality_v0(version, actions, type, exception, context);
}
// NOLINTEND(bugprone-reserved-identifier, misc-use-internal-linkage)
}
#endif
