/// \file The look-up of special methods.
#include "python/blocks.hpp"

#include "python/iterate.hpp"

namespace py {

Object special_method(const Object& object, const Object& name, const char* refusal) {
    PyTypeObject* type = Py_TYPE(object.ptr());
    for (const Object& base : iterate(Object::borrow(type->tp_mro))) {
        const Object namespace_ = Object::steal(PyType_GetDict(reinterpret_cast<PyTypeObject*>(base.ptr())));
        PyObject* found = nullptr;
        if (check(compat::find_item(namespace_.ptr(), name.ptr(), &found)) == 0) continue;
        Object method = Object::steal(found);
        const descrgetfunc bind = Py_TYPE(found)->tp_descr_get;
        if (bind == nullptr) return method;
        return Object::steal(bind(found, object.ptr(), reinterpret_cast<PyObject*>(type)));
    }
    PyErr_Format(PyExc_TypeError, refusal, type->tp_name);
    throw_pending();
}

}  // namespace py
