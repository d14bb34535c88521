/// \file Functions and classes as Python objects, and the exceptions that leave them.
#include "python/function.hpp"

namespace py {

void detail::set_exception(PyObject* raised, bool no_memory) noexcept {
    if (raised != nullptr)
        PyErr_SetRaisedException(raised);
    else if (no_memory)
        PyErr_NoMemory();
    else
        PyErr_SetString(PyExc_SystemError, "unknown C++ exception");
}

Object function(Module m, PyMethodDef& entry) {
    return Object::steal(PyCFunction_NewEx(&entry, m.ptr(), m.globals().get<"__name__">().ptr()));
}

Object method(Module m, PyMethodDef& entry) { return Object::steal(PyInstanceMethod_New(function(m, entry).ptr())); }

Object bound_method(const Object& function, const Object& first) {
    return Object::steal(PyMethod_New(function.ptr(), first.ptr()));
}

Object make_class(Module m, const Object& name, const Object& body) {
    body.set_item<"__module__">(m.get<"__name__">());
    body.set_item<"__qualname__">(name);
    return invoke{type(PyType_Type), name, tuple{}, body};
}

}  // namespace py
