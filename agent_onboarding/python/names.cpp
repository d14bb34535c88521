/// \file Interning, and which table of names is whose.
#include "python/names.hpp"

#include <memory>
#include <mutex>

#include "python/compat.hpp"

namespace py {

namespace {

constinit NameTable* tables = nullptr;  // all of them; they are not Python objects
// Interpreters with locks of their own may look for their tables at the same time. Nothing is called meanwhile.
constinit std::mutex tables_mutex;

std::int64_t running_interpreter() noexcept { return PyInterpreterState_GetID(PyInterpreterState_Get()); }

}  // namespace

NameTable* NameTable::find(std::int64_t interpreter) noexcept {
    NameTable* table = tables;
    while (table != nullptr && table->interpreter_ != interpreter) table = table->next_;
    return table;
}

NameTable& NameTable::find_running() noexcept {
    const std::int64_t interpreter = running_interpreter();
    const std::scoped_lock lock{tables_mutex};
    return *find(interpreter);
}

NameTable* NameTable::acquire() {
    auto made = std::make_unique<NameTable>(running_interpreter());
    const std::scoped_lock lock{tables_mutex};
    NameTable* table = find(made->interpreter_);
    if (table == nullptr) {
        only_.store(tables == nullptr ? made.get() : nullptr, std::memory_order_release);
        made->next_ = tables;
        table = tables = made.release();
    }
    ++table->users_;
    return table;
}

void NameTable::release() noexcept {
    if (--users_ > 0) return;
    {
        const std::scoped_lock lock{tables_mutex};
        NameTable** link = &tables;
        while (*link != this) link = &(*link)->next_;
        *link = next_;
        only_.store(tables != nullptr && tables->next_ == nullptr ? tables : nullptr, std::memory_order_release);
    }
    delete this;
}

namespace {

Object interned(std::string_view text) {
    PyObject* string = PyUnicode_FromStringAndSize(text.data(), static_cast<Py_ssize_t>(text.size()));
    if (string != nullptr) PyUnicode_InternInPlace(&string);
    return Object::steal(string);
}

constinit std::atomic<unsigned short> last_slot = 0;

}  // namespace

unsigned short Name::assign_slot() const {
    unsigned short slot = slot_;
    if (slot != 0) return slot;
    const unsigned short next = ++last_slot;
    if (next >= name_capacity) {
        PyErr_SetString(PyExc_SystemError, "more names than the table has slots");
        throw_pending();
    }
    // Another interpreter may be faster.
    return slot_.compare_exchange_strong(slot, next) ? next : slot;
}

const Object& Name::intern(NameTable& names) const {
    Object& slot = names[assign_slot()];
    if (slot.ptr() == nullptr) slot = interned(text());
    return slot;
}

PyObject* Name::find_in(PyObject* dict) const {
    if (dict == nullptr) return nullptr;  // of a module that the garbage collector has cleared
    PyObject* const key = get().ptr();
    PyObject *found = nullptr, *value = nullptr;
    Py_ssize_t position = position_;
    if (PyDict_Next(dict, &position, &found, &value) != 0 && found == key) return Py_NewRef(value);
    return search(dict, key);
}

PyObject* Name::search(PyObject* dict, PyObject* key) const {
    PyObject *found = nullptr, *value = nullptr;
    Py_ssize_t position = 0;
    if (check(compat::find_item(dict, key, &value)) != 0 && position_ == 0)
        while (PyDict_Next(dict, &position, &found, nullptr) != 0 && found != key)
            position_ = static_cast<unsigned short>(position);
    return value;
}

}  // namespace py
