/// \file Raising.
#include "python/error.hpp"

#include "python/text.hpp"

namespace py {

Error fetch_error() {
    PyObject* exception = PyErr_GetRaisedException();
    if (exception == nullptr) {
        PyErr_SetString(PyExc_SystemError, "error return without exception set");
        exception = PyErr_GetRaisedException();
    }
    return Error{Object::steal(exception)};
}

void throw_pending() { throw fetch_error(); }

namespace {

Object exception_instance(const Object& exception) {
    if (PyExceptionInstance_Check(exception.ptr())) return exception;
    if (PyExceptionClass_Check(exception.ptr())) {
        Object instance = invoke{exception};
        if (PyExceptionInstance_Check(instance.ptr())) return instance;
        raise(PyExc_TypeError, fstring<"calling {} should have returned an instance of BaseException, not {}">{
                                   repr(exception), repr(type_of(instance))});
    }
    raise(PyExc_TypeError, "exceptions must derive from BaseException"_s);
}

}  // namespace

Error make_error(const Object& exception) {
    const Object instance = exception_instance(exception);
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(instance.ptr())), instance.ptr());
    return fetch_error();
}

void raise_from(const Object& exception, const Object& cause) {
    const Object instance = exception_instance(exception);
    PyException_SetCause(instance.ptr(), cause.is_none() ? nullptr : Object{cause}.release());
    raise(instance);
}

}  // namespace py
