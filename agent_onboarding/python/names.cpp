/// \file Interning.
#include "python/names.hpp"

#include "python/error.hpp"

namespace py {

constinit thread_local Object* names_in_use = nullptr;

namespace {

Object interned(std::string_view text) {
    PyObject* string = PyUnicode_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size()));
    if (string != nullptr) PyUnicode_InternInPlace(&string);
    return Object::steal(string);
}

Object interned_tuple(std::string_view texts) {
    Object tuple = Object::steal(PyTuple_New(1 + std::count(texts.begin(), texts.end(), ',')));
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(tuple.ptr()); ++i) {
        const std::size_t length = std::min(texts.find(','), texts.size());
        PyTuple_SET_ITEM(tuple.ptr(), i, interned(texts.substr(0, length)).release());
        texts.remove_prefix(std::min(length + 1, texts.size()));
    }
    return tuple;
}

}  // namespace

void refuse_place() { raise(PyExc_SystemError, interned("more names than the module has room for")); }

const Object& Name::intern() const {
    Object& place = names_in_use[place_.own_index()];
    Object object = kind_ == Kind::string ? interned(text()) : interned_tuple(text());
    if (place.ptr() == nullptr) place = std::move(object);
    return place;
}

}  // namespace py
