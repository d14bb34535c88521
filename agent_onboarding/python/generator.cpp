/// \file The type of the lazy iterators, made when the first of them is.
#include "python/generator.hpp"

#include <memory>
#include <new>

namespace py::detail {

namespace {

Generator& generator_of(PyObject* self) noexcept { return *reinterpret_cast<Generator*>(self); }

int traverse(PyObject* self, visitproc visit, void* arg) noexcept {
    Py_VISIT(Py_TYPE(self));
    Py_VISIT(generator_of(self).module.ptr());
    Py_VISIT(generator_of(self).held.ptr());
    return 0;
}

int clear(PyObject* self) noexcept {
    generator_of(self).finish();
    return 0;
}

void deallocate(PyObject* self) noexcept {
    PyTypeObject* type = Py_TYPE(self);
    PyObject_GC_UnTrack(self);
    std::destroy_at(&generator_of(self).held);
    std::destroy_at(&generator_of(self).module);
    type->tp_free(self);
    Py_DECREF(type);
}

template <typename Function>
void* slot(Function function) noexcept {
    return reinterpret_cast<void*>(function);
}

Object make_type(Module m) {
    PyType_Slot slots[] = {
        {Py_tp_dealloc, slot(deallocate)},     {Py_tp_traverse, slot(traverse)},        {Py_tp_clear, slot(clear)},
        {Py_tp_iter, slot(PyObject_SelfIter)}, {Py_tp_iternext, slot(Generator::next)}, {0, nullptr}};
    PyType_Spec description{"sablecrest.agent_onboarding.generator", sizeof(Generator), 0,
                            Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};
    PyObject* type = PyType_FromModuleAndSpec(m.ptr(), &description, nullptr);
    // CPython does not say so when there is no memory for a copy of the name.
    if (type == nullptr && PyErr_Occurred() == nullptr) PyErr_NoMemory();
    return Object::steal(type);
}

}  // namespace

PyObject* Generator::next(PyObject* self) noexcept {
    Generator& generator = generator_of(self);
    const Module m{generator.module.ptr()};
    const UseNames names{m};
    return guarded([&] { return generator.resume(m, generator); });
}

Object make_generator(Module m, const Object& argument, Object (*resume)(Module, Generator&)) {
    std::optional<Object>& type = m.state().generator_type();
    if (!type.has_value()) type = make_type(m);
    Object object = Object::steal(PyType_GenericAlloc(reinterpret_cast<PyTypeObject*>(type->ptr()), 0));
    Generator& generator = generator_of(object.ptr());
    new (&generator.module) Object{Object::borrow(m.ptr())};
    new (&generator.held) Object{argument};
    generator.resume = resume;
    generator.stage = Generator::Stage::created;
    return object;
}

}  // namespace py::detail
