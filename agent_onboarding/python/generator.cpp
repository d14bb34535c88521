/// \file The type of the generators, made when the first of them is.
#include "python/generator.hpp"

#include "python/blocks.hpp"
#include "python/function.hpp"

namespace py {

namespace {

enum class Stage { created, suspended, running, exhausted };

struct Generator {
    PyObject ob_base;
    Object module, held;  // held: the argument, then the iterator that the body made of it
    const GeneratorBody* body;
    Stage stage;
};

Generator& generator_of(PyObject* self) noexcept { return *reinterpret_cast<Generator*>(self); }

void finish(Generator& generator) {
    generator.stage = Stage::exhausted;
    generator.held = none;
}

int traverse(PyObject* self, visitproc visit, void* arg) noexcept {
    Py_VISIT(Py_TYPE(self));
    Py_VISIT(generator_of(self).module.ptr());
    Py_VISIT(generator_of(self).held.ptr());
    return 0;
}

int clear(PyObject* self) noexcept {
    finish(generator_of(self));
    return 0;
}

void refuse_running(const Generator& generator) {
    if (generator.stage == Stage::running) raise(PyExc_ValueError, "generator already executing"_s);
}

/// One step of the body; nothing at its end.
std::optional<Object> advance(Generator& generator) {
    const Module m{generator.module.ptr()};
    const bool is_first = std::exchange(generator.stage, Stage::running) == Stage::created;
    if (is_first) generator.held = generator.body->begin(m, generator.held);
    auto item = generator.body->step(m, generator.held);
    generator.stage = Stage::suspended;
    return item;
}

std::optional<Object> resume(Generator& generator) {
    refuse_running(generator);
    if (generator.stage == Stage::exhausted) return std::nullopt;
    auto item =
        try_except([&] { return advance(generator); },
                   [&](const Handling& except) -> std::optional<Object> {
                       finish(generator);
                       // To the caller a StopIteration would mean that there are no more items.
                       if (except.caught(PyExc_StopIteration))
                           raise_from(invoke{PyExc_RuntimeError, "generator raised StopIteration"_s}, except.value());
                       except.reraise();
                   });
    if (!item.has_value()) finish(generator);
    return item;
}

PyObject* next(PyObject* self) noexcept {
    return call_from_python([=]() -> PyObject* {
        auto item = resume(generator_of(self));
        return item.has_value() ? item->release() : nullptr;
    });
}

PyObject* send(PyObject* self, PyObject* value) noexcept {
    return call_from_python([=]() -> PyObject* {
        Generator& generator = generator_of(self);
        if (generator.stage == Stage::created && !Py_IsNone(value))
            raise(PyExc_TypeError, "can't send non-None value to a just-started generator"_s);
        auto item = resume(generator);
        if (!item.has_value()) raise(to_object(PyExc_StopIteration));
        return item->release();
    });
}

/// `throw(exception)`, `throw(type, value=None, traceback=None)`: the body handles no exception, so it ends.
PyObject* throw_into(PyObject* self, PyObject* const* arguments, Py_ssize_t count) noexcept {
    return call_from_python([=]() -> PyObject* {
        if (count < 1 || count > 3) {
            PyErr_Format(PyExc_TypeError, "throw() takes from 1 to 3 positional arguments (%zd given)", count);
            throw_pending();
        }
        Generator& generator = generator_of(self);
        refuse_running(generator);
        Object exception = Object::borrow(arguments[0]);
        if (count > 1 && !Py_IsNone(arguments[1])) {
            const Object value = Object::borrow(arguments[1]);
            exception = PyExceptionInstance_Check(value.ptr()) ? value : invoke{exception, value};
        }
        const Error error = make_error(exception);
        if (count > 2 && !Py_IsNone(arguments[2])) check(PyException_SetTraceback(error.value().ptr(), arguments[2]));
        finish(generator);
        throw Error{error};
    });
}

PyObject* close(PyObject* self, PyObject*) noexcept {
    return call_from_python([=] {
        refuse_running(generator_of(self));
        finish(generator_of(self));
        return Object{none}.release();
    });
}

PyMethodDef methods[] = {
    {"send", send, METH_O, nullptr},
    {"throw", reinterpret_cast<PyCFunction>(slot(throw_into)), METH_FASTCALL, nullptr},
    {"close", close, METH_NOARGS, nullptr},
    {},
};

Object make_generator_type(Module m) {
    PyType_Slot slots[] = {{Py_tp_dealloc, slot(deallocate<Generator>)},
                           {Py_tp_traverse, slot(traverse)},
                           {Py_tp_clear, slot(clear)},
                           {Py_tp_iter, slot(PyObject_SelfIter)},
                           {Py_tp_iternext, slot(next)},
                           {Py_tp_methods, methods},
                           {0, nullptr}};
    PyType_Spec description{"sablecrest.agent_onboarding.generator", sizeof(Generator), 0,
                            Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};
    return make_type(m, description);
}

}  // namespace

Object generator(Module m, const GeneratorBody& body, const Object& argument) {
    std::optional<Object>& type = m.state().generator_type();
    if (!type.has_value()) type = make_generator_type(m);
    Object object = allocate(*type);
    Generator& generator = generator_of(object.ptr());
    generator.module = Object::borrow(m.ptr());
    generator.held = argument;
    generator.body = &body;
    generator.stage = Stage::created;
    return object;
}

}  // namespace py
