/// \file The argument binder and its TypeErrors.
#include "python/arguments.hpp"

namespace py {

namespace {

bool refuse_count(const ParameterTable& table, std::size_t given) {
    const std::size_t bound = given < table.required ? table.required : table.positional;
    const char* word = table.required == table.positional ? "exactly" : given < bound ? "at least" : "at most";
    PyErr_Format(PyExc_TypeError, "%s() takes %s %zu positional argument%s (%zu given)", table.function, word, bound,
                 bound == 1 ? "" : "s", given);
    return false;
}

bool refuse_keyword(const char* format, const ParameterTable& table, PyObject* name) {
    PyErr_Format(PyExc_TypeError, format, table.function, name);
    return false;
}

bool same_name(PyObject* left, PyObject* right) {
    if (left == right) return true;
    const int order = PyUnicode_Compare(left, right);
    if (order == -1 && PyErr_Occurred() != nullptr) throw_pending();
    return order == 0;
}

std::size_t parameter_index(const ParameterTable& table, PyObject* name) {
    std::size_t index = 0;
    while (index < table.count && !same_name(table.names[index]->get().ptr(), name)) ++index;
    return index;
}

bool bind_keyword(const ParameterTable& table, PyObject* name, PyObject* value, PyObject** bound,
                  const Object& other_keywords) {
    const std::size_t index = parameter_index(table, name);
    if (index == table.count) {
        if (!table.var_keywords) return refuse_keyword("%s() got an unexpected keyword argument '%U'", table, name);
        other_keywords.set_item(Object::borrow(name), Object::borrow(value));
        return true;
    }
    if (bound[index] != nullptr)
        return refuse_keyword("%s() got multiple values for keyword argument '%U'", table, name);
    bound[index] = value;
    return true;
}

}  // namespace

bool bind_arguments(const ParameterTable& table, const PassedArguments& passed, PyObject** bound,
                    const Object& other_keywords) {
    if (passed.positional > table.positional && !table.var_positional) return refuse_count(table, passed.positional);

    const std::size_t by_position = std::min(passed.positional, table.positional);
    std::copy_n(passed.values, by_position, bound);
    std::fill(bound + by_position, bound + table.count, nullptr);

    if (passed.keywords != nullptr) {
        PyObject* const* values = passed.values + passed.positional;
        for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(passed.keywords); ++i)
            if (!bind_keyword(table, PyTuple_GET_ITEM(passed.keywords, i), values[i], bound, other_keywords))
                return false;
    }

    const bool is_complete = std::find(bound, bound + table.required, nullptr) == bound + table.required;
    return is_complete || refuse_count(table, passed.positional);
}

Object var_positional(const PassedArguments& passed) {
    Object parts = Object::steal(PyTuple_New(static_cast<Py_ssize_t>(passed.positional)));
    for (std::size_t i = 0; i < passed.positional; ++i)
        PyTuple_SET_ITEM(parts.ptr(), static_cast<Py_ssize_t>(i), Py_NewRef(passed.values[i]));
    return parts;
}

}  // namespace py
