/// \file Interning of the reserved names, and their release with the module.
#include "python/names.hpp"

#include <cstring>

namespace py {

constinit thread_local PyObject* const* names_in_use = nullptr;

namespace {

PyObject* intern(const char* text, std::size_t size) noexcept {
    PyObject* string = PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(size), "strict");
    if (string != nullptr) PyUnicode_InternInPlace(&string);
    return string;
}

PyObject* intern_each(std::string_view texts) noexcept {
    const auto size = 1 + std::count(texts.begin(), texts.end(), ',');
    PyObject* tuple = PyTuple_New(size);
    for (Py_ssize_t i = 0; tuple != nullptr && i < size; ++i) {
        const std::size_t length = std::min(texts.find(','), texts.size());
        PyObject* string = intern(texts.data(), length);
        if (string == nullptr) {
            Py_CLEAR(tuple);
        } else {
            PyTuple_SET_ITEM(tuple, i, string);
            texts.remove_prefix(std::min(length + 1, texts.size()));
        }
    }
    return tuple;
}

}  // namespace

PyObject* Slot::make() const noexcept {
    return kind_ == Kind::string ? intern(text_, std::strlen(text_)) : intern_each(text_);
}

bool Slot::intern_all(PyObject** names) noexcept {
    for (const Slot* slot = first_; slot != nullptr; slot = slot->next_) {
        names[slot->index_] = slot->make();
        if (names[slot->index_] == nullptr) return false;
    }
    return true;
}

void Slot::release_all(PyObject** names) noexcept {
    for (std::size_t i = 0; i < count_; ++i) Py_CLEAR(names[i]);
}

}  // namespace py
