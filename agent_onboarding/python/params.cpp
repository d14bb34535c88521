/// \file The argument binder and its TypeErrors.
#include "python/params.hpp"

#include "python/text.hpp"

namespace py {

namespace {

bool refuse_count(const Binding& binding, std::size_t given) {
    const std::size_t bound = given < binding.required ? binding.required : binding.positional;
    const char* word = binding.required == binding.positional ? "exactly" : given < bound ? "at least" : "at most";
    PyErr_Format(PyExc_TypeError, "%s() takes %s %zu positional argument%s (%zu given)", binding.name, word, bound,
                 bound == 1 ? "" : "s", given);
    return false;
}

bool refuse_keyword(const char* format, const Binding& binding, PyObject* name) {
    PyErr_Format(PyExc_TypeError, format, binding.name, name);
    return false;
}

bool same_name(PyObject* left, PyObject* right) {
    const int order = PyUnicode_Compare(left, right);
    if (order == -1 && PyErr_Occurred() != nullptr) throw_pending();
    return order == 0;
}

bool bind_keyword(const Binding& binding, PyObject* name, PyObject* value, PyObject** bound) {
    const std::size_t index = parameter_index(binding, name);
    if (index == binding.count)
        return binding.var_keywords || refuse_keyword("%s() got an unexpected keyword argument '%U'", binding, name);
    if (bound[index] != nullptr)
        return refuse_keyword("%s() got multiple values for keyword argument '%U'", binding, name);
    bound[index] = value;
    return true;
}

}  // namespace

std::size_t parameter_index(const Binding& binding, PyObject* name) {
    for (std::size_t i = 0; i < binding.count; ++i)
        if (binding.names[i]->ptr() == name) return i;
    for (std::size_t i = 0; i < binding.count; ++i)
        if (same_name(binding.names[i]->ptr(), name)) return i;
    return binding.count;
}

Object Positional::tuple() const {
    Object result = Object::steal(PyTuple_New(std::ssize(values_)));
    for (std::size_t i = 0; i < values_.size(); ++i)
        PyTuple_SET_ITEM(result.ptr(), static_cast<Py_ssize_t>(i), Py_NewRef(values_[i]));
    return result;
}

namespace {

bool is_ascii(PyObject* text) noexcept { return PyUnicode_CheckExact(text) && PyUnicode_IS_ASCII(text); }

}  // namespace

Object join(const Object& separator, const Positional& parts) {
    const auto texts = parts.values();
    if (texts.size() < 2 || !is_ascii(separator.ptr()) || !std::ranges::all_of(texts, is_ascii))
        return join(separator, parts.tuple());

    Py_ssize_t size = PyUnicode_GET_LENGTH(separator.ptr()) * (std::ssize(texts) - 1);
    for (PyObject* text : texts) size += PyUnicode_GET_LENGTH(text);
    Object result = Object::steal(PyUnicode_New(size, 0x7F));
    AsciiWriter writer{result};
    writer.write(texts.front());
    for (PyObject* text : texts.subspan(1)) {
        writer.write(separator.ptr());
        writer.write(text);
    }
    return result;
}

bool bind(const Binding& binding, const Arguments& arguments, PyObject** bound) {
    if (arguments.positional > binding.positional && !binding.var_positional)
        return refuse_count(binding, arguments.positional);

    const std::size_t by_position = std::min(arguments.positional, binding.positional);
    std::copy_n(arguments.values, by_position, bound);
    std::fill(bound + by_position, bound + binding.count, nullptr);

    if (arguments.keywords != nullptr) {
        PyObject* const* values = arguments.values + arguments.positional;
        for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(arguments.keywords); ++i)
            if (!bind_keyword(binding, PyTuple_GET_ITEM(arguments.keywords, i), values[i], bound)) return false;
    }

    const bool is_complete = std::find(bound, bound + binding.required, nullptr) == bound + binding.required;
    return is_complete || refuse_count(binding, arguments.positional);
}

}  // namespace py
