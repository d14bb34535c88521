/// \file The general way to call a class.
#include "python/constructor.hpp"

namespace py::detail {

PyObject* call_class(PyObject* cls, PyObject* const* values, std::size_t count, PyObject* keywords) noexcept {
    return guarded([=] {
        const Arguments arguments{values, static_cast<std::size_t>(PyVectorcall_NARGS(count)), keywords};
        Object named;
        if (keywords != nullptr) {
            named = dict();
            for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(keywords); ++i)
                named.set_item(Object::borrow(PyTuple_GET_ITEM(keywords, i)),
                               Object::borrow(values[arguments.positional + static_cast<std::size_t>(i)]));
        }
        return Object::steal(Py_TYPE(cls)->tp_call(cls, Positional{arguments}.tuple().ptr(), named.ptr()));
    });
}

}  // namespace py::detail
