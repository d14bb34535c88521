/// \file Functions and classes that are made while the module runs.
#include "python/function.hpp"

namespace py {

namespace {

Object bound_to(PyMethodDef& entry, const Object& self, Module m) {
    return Object::steal(PyCFunction_NewEx(&entry, self.ptr(), m.globals().lookup<"__name__">().ptr()));
}

}  // namespace

Object function(Module m, PyMethodDef& entry) { return bound_to(entry, Object::borrow(m.ptr()), m); }

Object method(Module m, PyMethodDef& entry) { return Object::steal(PyInstanceMethod_New(function(m, entry).ptr())); }

Object closure(Module m, PyMethodDef& entry, const Object& captured) {
    return bound_to(entry, tuple(Object::borrow(m.ptr()), captured), m);
}

bool is_bound(Module m, const PyMethodDef& entry, const DottedName& name) {
    PyObject* function = m.find(name);
    return function != nullptr && PyCFunction_CheckExact(function) &&
           PyCFunction_GET_FUNCTION(function) == entry.ml_meth && PyCFunction_GET_SELF(function) == m.ptr();
}

Object make_class(Module m, const Object& name, const Object& attributes, PyMethodDef* methods) {
    attributes.set_item<"__module__">(m.get<"__name__">());
    attributes.set_item<"__qualname__">(name);
    Object cls = type(PyType_Type)(name, tuple(), attributes);
    compat::set_module(cls.ptr(), m.ptr());
    for (PyMethodDef* method = methods; method->ml_name != nullptr; ++method) {
        const Object attribute = from_utf8(method->ml_name);
        const Object descriptor = Object::steal(PyDescr_NewMethod(reinterpret_cast<PyTypeObject*>(cls.ptr()), method));
        if (PyObject_SetAttr(cls.ptr(), attribute.ptr(), descriptor.ptr()) == 0) continue;
        PyErr_NoMemory();  // Nothing else can fail, but CPython 3.13 calls it a missing attribute.
        throw_pending();
    }
    return cls;
}

}  // namespace py
