/// \file Interning at first use.
#include "python/names.hpp"

#include "python/error.hpp"

namespace py {

constinit thread_local Object* names_in_use = nullptr;

namespace {

constinit std::atomic<unsigned> names_placed{0};

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

const Object& Name::intern() {
    Object name = kind_ == Kind::string ? interned(text_) : interned_tuple(text_);
    unsigned index = index_.load();
    if (index == 0) {
        // Another interpreter may place the name at the same time; the loser's place stays unused.
        const unsigned place = ++names_placed;
        if (place >= name_capacity) raise(PyExc_SystemError, interned("more names than the module has room for"));
        if (index_.compare_exchange_strong(index, place)) index = place;
    }
    return names_in_use[index] = std::move(name);
}

}  // namespace py
