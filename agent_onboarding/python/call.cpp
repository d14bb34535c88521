/// \file What calls come down to, whatever their names and arguments.
#include "python/call.hpp"

namespace py::detail {

Object keyword_names(std::initializer_list<const Name*> names, Py_ssize_t count) {
    Object tuple = Object::steal(PyTuple_New(count));
    Py_ssize_t i = 0;
    for (const Name* name : names)
        if (name != nullptr) PyTuple_SET_ITEM(tuple.ptr(), i++, Object{name->get()}.release());
    return tuple;
}

Object call(const Object& callee, Arguments arguments) {
    return Object::steal(PyObject_Vectorcall(
        callee.ptr(), arguments.slots + 2, arguments.positional | PY_VECTORCALL_ARGUMENTS_OFFSET, arguments.keywords));
}

Object call_method(const Object& self, const Name& name, Arguments arguments) {
    if (PyModule_CheckExact(self.ptr())) return call(attribute(self, name), arguments);
    arguments.slots[1] = self.ptr();
    return Object::steal(PyObject_VectorcallMethod(name.get().ptr(), arguments.slots + 1,
                                                   (arguments.positional + 1) | PY_VECTORCALL_ARGUMENTS_OFFSET,
                                                   arguments.keywords));
}

}  // namespace py::detail
