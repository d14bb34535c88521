/// \file The exception being handled, and the look-up of special methods.
#include "python/blocks.hpp"

#include "python/text.hpp"

namespace py {

// The handled exceptions form a stack of which every frame and generator owns an entry. Saving and restoring the top
// through PyErr_SetHandledException would leave our caller's exception in a generator's entry, so, like a generator,
// we push an entry of our own. It owns a reference: whoever replaces its value drops the old one.
Handling::Handling(Object exception) noexcept
    : exception_(std::move(exception)),
      thread_(PyThreadState_Get()),
      entry_{Py_NewRef(exception_.ptr()), thread_->exc_info} {
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

/// Looks a special method up on the type alone, as the interpreter does for its statements, and binds it.
std::optional<Object> special_method(const Object& object, const Object& name) {
    PyTypeObject* type = Py_TYPE(object.ptr());
    for (const Object& base : iterate(Object::borrow(type->tp_mro))) {
        const Object namespace_ = Object::steal(PyType_GetDict(reinterpret_cast<PyTypeObject*>(base.ptr())));
        auto method = find_item(namespace_, name);
        if (!method.has_value()) continue;
        const descrgetfunc bind = Py_TYPE(method->ptr())->tp_descr_get;
        if (bind == nullptr) return method;
        return Object::steal(bind(method->ptr(), object.ptr(), reinterpret_cast<PyObject*>(type)));
    }
    return std::nullopt;
}

Object method_of_context_manager(const Object& manager, const Object& name, const char* missed) {
    if (auto method = special_method(manager, name)) return *std::move(method);
    PyErr_Format(PyExc_TypeError, "'%.200s' object does not support the context manager protocol%s",
                 Py_TYPE(manager.ptr())->tp_name, missed);
    throw_pending();
}

}  // namespace

std::pair<Object, Object> detail::context_methods(const Object& manager) {
    Object enter = method_of_context_manager(manager, "__enter__"_s, "");
    return {std::move(enter), method_of_context_manager(manager, "__exit__"_s, " (missed __exit__ method)")};
}

bool detail::swallows(const Object& exit, const Object& exception) {
    PyObject* traceback = PyException_GetTraceback(exception.ptr());
    return truth(invoke{exit, type_of(exception), exception, traceback != nullptr ? Object::steal(traceback) : none});
}

}  // namespace py
