/// \file Replaces what the C++ runtime words a message with for an exception that nobody catches. The trampoline lets none
/// through, and the demangler that it would use takes 60 KiB in libstdc++, 130 KiB in libc++abi.
#include <cstdlib>

// NOLINTBEGIN(bugprone-reserved-identifier, misc-use-internal-linkage)
#ifdef __GLIBCXX__
namespace __gnu_cxx {
void __verbose_terminate_handler() { std::abort(); }
}  // namespace __gnu_cxx
#elif defined(_LIBCPP_VERSION) && !defined(_MSC_VER)
extern "C" char* __cxa_demangle(const char*, char*, std::size_t*, int*) { return nullptr; }
#endif
// NOLINTEND(bugprone-reserved-identifier, misc-use-internal-linkage)
