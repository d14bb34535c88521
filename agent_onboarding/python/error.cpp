/// \file Raising, handling and translating exceptions.
#include "python/error.hpp"

#include "python/iterate.hpp"
#include "python/text.hpp"

#include <exception>
#include <new>

namespace py {

Error pending() {
    PyObject* exception = PyErr_GetRaisedException();
    if (exception == nullptr) {
        PyErr_SetString(PyExc_SystemError, "error return without exception set");
        exception = PyErr_GetRaisedException();
    }
    return Error{Object::steal(exception)};
}

void throw_pending() { throw pending(); }

Object Error::traceback() const {
    PyObject* traceback = PyException_GetTraceback(exception_.ptr());
    return traceback != nullptr ? Object::steal(traceback) : none();
}

// The handled exceptions form a stack of which every frame and generator owns an entry. Saving and restoring the top
// through PyErr_SetHandledException would leave our caller's exception in a generator's entry, so, like a generator,
// we push an entry of our own. It owns a reference: whoever replaces its value drops the old one.
Handling::Handling(const Error& error) noexcept
    : exception_(error.value()), thread_(PyThreadState_Get()), entry_{Py_NewRef(exception_.ptr()), thread_->exc_info} {
    thread_->exc_info = &entry_;
}

Handling::~Handling() {
    thread_->exc_info = entry_.previous_item;
    Py_XDECREF(entry_.exc_value);
}

bool Handling::caught(PyObject* type) const noexcept {
    return PyErr_GivenExceptionMatches(exception_.ptr(), type) != 0;
}

namespace {

bool can_be_caught(const Object& type) {
    if (!type.is_tuple()) return PyExceptionClass_Check(type.ptr()) != 0;
    for (const Object& member : iterate(type))
        if (PyExceptionClass_Check(member.ptr()) == 0) return false;
    return true;
}

}  // namespace

bool Handling::caught(const Object& type) const {
    if (!can_be_caught(type))
        raise(PyExc_TypeError, "catching classes that do not inherit from BaseException is not allowed"_s);
    return caught(type.ptr());
}

namespace {

Object exception_instance(const Object& exception) {
    if (PyExceptionInstance_Check(exception.ptr())) return exception;
    if (PyExceptionClass_Check(exception.ptr())) {
        Object instance = exception();
        if (PyExceptionInstance_Check(instance.ptr())) return instance;
        raise(PyExc_TypeError, text<"calling {} should have returned an instance of BaseException, not {}">(
                                   repr(exception), repr(type_of(instance))));
    }
    raise(PyExc_TypeError, "exceptions must derive from BaseException"_s);
}

}  // namespace

Outcome refused(const Object& exception) {
    const Object instance = exception_instance(exception);
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(instance.ptr())), instance.ptr());
    return Outcome::refusal();
}

Error raised(const Object& exception) {
    refused(exception);
    return pending();
}

void raise_from(const Object& exception, const Object& cause) {
    const Object instance = exception_instance(exception);
    PyException_SetCause(instance.ptr(), cause.is_none() ? nullptr : Object{cause}.release());
    raise(instance);
}

void translate_exception() noexcept {
    try {
        throw;
    } catch (const Error& error) {
        error.restore();
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_SystemError, error.what());
    } catch (...) {
        PyErr_SetString(PyExc_SystemError, "unknown C++ exception");
    }
}

}  // namespace py
