/// \file What calls come down to, whatever their names and arguments.
#include "python/call.hpp"

namespace py::detail {

namespace {

PyObject* keywords_of(Arguments arguments) {
    return arguments.keywords != nullptr ? arguments.keywords->get().ptr() : nullptr;
}

}  // namespace

Object call(const Object& callee, Arguments arguments) {
    return Object::steal(PyObject_Vectorcall(callee.ptr(), arguments.slots + 2,
                                             arguments.positional | PY_VECTORCALL_ARGUMENTS_OFFSET,
                                             keywords_of(arguments)));
}

Object call_method(const Object& self, const Name& name, Arguments arguments) {
    if (PyModule_CheckExact(self.ptr())) return call(attribute(self, name), arguments);
    arguments.slots[1] = self.ptr();
    return Object::steal(PyObject_VectorcallMethod(name.get().ptr(), arguments.slots + 1,
                                                   (arguments.positional + 1) | PY_VECTORCALL_ARGUMENTS_OFFSET,
                                                   keywords_of(arguments)));
}

}  // namespace py::detail
