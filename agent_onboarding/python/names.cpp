/// \file Interning.
#include "python/names.hpp"

#include "python/error.hpp"

namespace py {

constinit thread_local Object* names_in_use = nullptr;

namespace {

constinit const Name* last_name = nullptr;

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

Name::Name(Kind kind, std::string_view text) noexcept
    : kind_(kind), text_(text), index_(last_name != nullptr ? last_name->index_ + 1 : 0), previous_(last_name) {
    last_name = this;
}

Object Name::intern() const {
    if (kind_ == Kind::dotted) return {};
    return kind_ == Kind::string ? interned(text_) : interned_tuple(text_);
}

void Name::intern_all() {
    if (last_name->index_ >= name_capacity)
        raise(PyExc_SystemError, interned("more names than the module has room for"));
    for (const Name* name = last_name; name != nullptr; name = name->previous_)
        names_in_use[name->index_] = name->intern();
}

}  // namespace py
