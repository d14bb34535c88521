/// \file Functions and classes as Python objects, and the exceptions that leave them.
#include "python/function.hpp"

#include <cstddef>

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

bool is_function(const Object& object, Module m, const PyMethodDef& entry) noexcept {
    return PyCFunction_CheckExact(object.ptr()) && PyCFunction_GET_FUNCTION(object.ptr()) == entry.ml_meth &&
           PyCFunction_GET_SELF(object.ptr()) == m.ptr();
}

Object bound_method(const Object& function, const Object& first) {
    return Object::steal(PyMethod_New(function.ptr(), first.ptr()));
}

Object make_type(Module m, PyType_Spec& description) {
    PyObject* type = PyType_FromModuleAndSpec(m.ptr(), &description, nullptr);
    // CPython does not say so when there is no memory for a copy of the name.
    if (type == nullptr && PyErr_Occurred() == nullptr) PyErr_NoMemory();
    return Object::steal(type);
}

Object allocate(const Object& type) {
    return Object::steal(PyType_GenericAlloc(reinterpret_cast<PyTypeObject*>(type.ptr()), 0));
}

namespace {

/// A function as a method. It binds any instance, as Python's own functions do, and the interpreter calls it without
/// making a bound method first, as Py_TPFLAGS_METHOD_DESCRIPTOR says.
struct Method {
    PyObject ob_base;
    Object function;
    vectorcallfunc vectorcall;
};

PyObject* function_of(PyObject* self) noexcept { return reinterpret_cast<Method*>(self)->function.ptr(); }

PyObject* call(PyObject* self, PyObject* const* arguments, std::size_t count, PyObject* keywords) noexcept {
    PyObject* function = function_of(self);
    return reinterpret_cast<PyCFunctionObject*>(function)->vectorcall(function, arguments, count, keywords);
}

PyObject* bind(PyObject* self, PyObject* instance, PyObject*) noexcept {
    return instance != nullptr ? PyMethod_New(function_of(self), instance) : Py_NewRef(function_of(self));
}

int traverse(PyObject* self, visitproc visit, void* arg) noexcept {
    Py_VISIT(Py_TYPE(self));
    Py_VISIT(function_of(self));
    return 0;
}

PyMemberDef members[] = {{"__vectorcalloffset__", Py_T_PYSSIZET, offsetof(Method, vectorcall), Py_READONLY, nullptr},
                         {}};

Object make_method_type(Module m) {
    PyType_Slot slots[] = {{Py_tp_dealloc, slot(deallocate<Method>)},
                           {Py_tp_traverse, slot(traverse)},
                           {Py_tp_call, slot(PyVectorcall_Call)},
                           {Py_tp_descr_get, slot(bind)},
                           {Py_tp_members, members},
                           {0, nullptr}};
    PyType_Spec description{"sablecrest.agent_onboarding.method", sizeof(Method), 0,
                            Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_HAVE_VECTORCALL |
                                Py_TPFLAGS_METHOD_DESCRIPTOR | Py_TPFLAGS_IMMUTABLETYPE |
                                Py_TPFLAGS_DISALLOW_INSTANTIATION,
                            slots};
    return make_type(m, description);
}

}  // namespace

void add_methods(Module m, const Object& body, std::span<PyMethodDef> entries) {
    const Object type = make_method_type(m);
    for (PyMethodDef& entry : entries) {
        const Object object = allocate(type);
        Method& method = *reinterpret_cast<Method*>(object.ptr());
        method.function = function(m, entry);
        method.vectorcall = call;
        body.set_item(from_utf8(entry.ml_name), object);
    }
}

Object make_class(Module m, const Object& name, const Object& body) {
    body.set_item<"__module__">(m.get<"__name__">());
    body.set_item<"__qualname__">(name);
    return invoke{type(PyType_Type), name, tuple{}, body};
}

}  // namespace py
