"""The layer does what plain Python does, in what it refuses too."""

import ctypes
import sys
from functools import partial
from itertools import count, product
from types import ModuleType

import layer_test as native
import pytest


def raise_(exception):
    raise exception


def import_from(package, name):
    exec(f"from {package} import {name} as found", scope := {})
    return scope["found"]


def raise_from(exception, cause):
    raise exception from cause


def handle(body, type, handler):
    try:
        return body()
    except type as error:
        return handler(error)


def try_finally(body, cleanup):
    try:
        return body()
    finally:
        cleanup()


def with_(manager, body):
    with manager as value:
        return body(value)


def chain(error):
    asked = getattr(error, "name", None), type(getattr(error, "obj", None))
    return error and [type(error), str(error), asked, chain(error.__cause__), chain(error.__context__)]


# A generator that starts while an exception is handled, and goes on when there is none any more.
def resume_elsewhere(ops):
    def nest(error):
        return ops.handle(lambda: ops.raise_from(OSError, error), OSError, chain)

    steps = (step() for step in (lambda: ops.handle(fails(KeyError), KeyError, nest), sys.exception))
    return handle(fails(ValueError), ValueError, lambda _: next(steps)), next(steps)


def swap_handled(_):
    ctypes.pythonapi.PyErr_SetHandledException(ctypes.py_object(OSError()))


def leave(_, type, value, traceback):
    raise LookupError(type, str(value), traceback is getattr(value, "__traceback__", None))


def fails(exception):
    return lambda *_: raise_(exception)


def instance(base=object, *arguments, **members):
    return type("Odd", (base,), members)(*arguments)


def module(kind=ModuleType, **namespace):
    return vars(result := kind("module")).update(namespace) or result


# What has a "name", has none, or fails when asked.
holders = [instance(), instance(name=lambda *args, **kw: (args, [*kw.items()]))]
holders += [instance(name=property(fails(AttributeError))), instance(name=property(fails(OSError)))]
holders += [instance(name=property(lambda _: raise_(AttributeError(name="own"))))]
holders += [module(type("Shadowing", (ModuleType,), {"name": property(len)}), name=str)]
holders += [instance(__getattr__=fails(error)) for error in (AttributeError, KeyError, KeyboardInterrupt)]
holders += [module(), module(__getattr__=len), module(__getattr__=fails(OSError)), module(name=module(__class__=1))]

failing = [fails(KeyError), fails(KeyboardInterrupt)]
handlers = [raise_, fails(OSError), swap_handled, lambda error: error is sys.exception()]
# Special methods count on the type alone; some are no functions, some no descriptors.
exits = [lambda *_: False, lambda *_: True, lambda *_: odd, leave, property(fails(ValueError)), None]
managers = [instance(__enter__=enter, __exit__=exit) for enter in (lambda _: 1, int, failing[0]) for exit in exits]
managers += [instance(__enter__=int), instance(__exit__=leave), module(__enter__=int, __exit__=leave)]


def bind_late(value):
    native.late = value


# An argument whose evaluation binds the name of the callee anew.
def count_and_rebind():
    bind_late(None)
    return next(numbers_of_calls)


def changed(change, collection):
    change(copy := type(collection)(collection))
    return copy


# Strings and their like whose own methods must be asked, and which refuse to be.
own = dict.fromkeys(("strip", "startswith", "endswith", "__radd__", "__eq__", "__format__"), lambda self, *_: self)
text, odd = instance(str, " a ", **own), instance(__bool__=fails(KeyError), **own)
hostile = instance(__hash__=lambda _: hash("name"), __eq__=fails(OSError), __format__=fails(OSError))
lookups = [{"name": 1}, {}, {hostile: 1}, instance(dict, get=lambda *names: names[1:]), *holders]
strings = ["", "a", "a ", "\u2003é\u3000", "é", "𝄞", "\ud800", "𝄞a\ud800", "a𝄞", "\x1c", text, ("a", "é"), odd, hostile]
poppable = [{"name": 1}, {}, {hostile: 1}, instance(dict, pop=lambda *names: 1 // 0)]
growing = [[], instance(list, append=list.remove)]
named = type("Named", (type,), {"__name__": property(lambda _: 1)})("Named", (), {})
numbers = [instance(name=1), instance(name=module()), module(name=module(real=2, conjugate=int)), module(), 1]

numbers_of_calls, ORDER = count(), [((0,), 1), "2 3", (4, 5)]
BOUND = {
    "add(**{'RIGHT'.lower(): 2, instance(str, 'left'): 1})": 3,
    "options(1, b=2, fifth=5, second=3, a=4)": [1, 3, True, False, 5, ("b", 2), ("a", 4)],
    "parts(*options(1))": (1, None, True, False, 64),
}
REFUSED = {
    "global_(1)": "global_() takes exactly 0 positional arguments (1 given)",
    "strip()": "strip() takes exactly 1 positional argument (0 given)",
    "add(1, 2, 3)": "add() takes exactly 2 positional arguments (3 given)",
    "add(right=2)": "add() takes exactly 2 positional arguments (0 given)",
    "options()": "options() takes at least 1 positional argument (0 given)",
    "options(1, 2, 3)": "options() takes at most 2 positional arguments (3 given)",
    "add(1, 2, left=1)": "add() got multiple values for keyword argument 'left'",
    "parts(é=1)": "parts() got an unexpected keyword argument 'é'",
}


# What C++ does, the same in Python, and the values for each argument.
CASES = {
    "hold": (native.hold, lambda _: raise_(KeyError(2)), [odd]),
    "get": (native.get, lambda x: x.name.__class__, holders),
    "find": (native.find, lambda x: getattr(x, "name", "missing"), holders),
    "has": (native.has, lambda x: hasattr(x, "name"), holders),
    "rebound": (lambda x: (bind_late(x), native.has(x), native.global_())[2], int, [1, 2]),
    "unbound": (lambda: (vars(native).pop("late", None), native.has(0), native.global_()), lambda: eval("late")),
    "call": (native.call, lambda x: x.name(1, b=True, a=2), holders),
    "dotted": (lambda x: (bind_late(x), native.dotted())[1], lambda x: (x.name.real, x.name.conjugate()), numbers),
    "in order": (lambda: (bind_late(lambda *a, key: (a, key)), native.in_order(count_and_rebind))[1], lambda: ORDER),
    "lookup": (native.lookup, lambda x: (x.get("name"), x.get("name", 0)), lookups),
    "import": (native.import_from_, import_from, ["os", "layer_test", "no.such"], ["path", "late", "missing"]),
    "discard": (partial(changed, native.discard_), partial(changed, lambda x: x.pop("name", None)), [*poppable, ()]),
    "append": (partial(changed, native.append_), partial(changed, lambda x: x.append(1)), [*growing, ()]),
    "raise": (native.raise_, raise_, [KeyError, 1, int]),
    "handle": (native.handle, handle, [int, *failing], [KeyError, OSError, odd], handlers),
    "nested": (lambda: resume_elsewhere(native), lambda: resume_elsewhere(sys.modules[__name__])),
    "finally": (native.try_finally, try_finally, [int, *failing], [int, *failing]),
    "with": (native.with_, with_, managers, [str, *failing]),
    "text": (native.text_, lambda x, y: f"<{x}> - {y}", strings, strings),
    "strip": (native.strip, lambda x: x.strip(), strings),
    "starts_with": (native.starts_with, lambda x, y: bool(x.startswith(y)), strings, strings),
    "ends_with": (native.ends_with, lambda x, y: bool(x.endswith(y)), strings, strings),
    "contains_any": (native.contains_any, lambda x: "\0" in x or "a" in x, [*strings, "b\0"]),
    "type_name": (native.type_name_, lambda x: type(x).__name__, [1, odd, named()]),
    "compare": (native.compare, lambda x, y: bool(x == y) - bool(x != y), strings, strings),
    "add": (native.add, lambda x, y: x + y, strings, strings),
    "items": (native.items, list, [[1, 2], {}, 1, instance(__iter__=lambda _: (1 // x for x in (1, 0)))]),
    "bind": (lambda x: eval(x, globals() | vars(native)), BOUND.get, BOUND),
    "refuse": (lambda x: eval(x, globals() | vars(native)), lambda x: raise_(TypeError(REFUSED[x])), REFUSED),
}


def outcomes(function, pools):
    for arguments in product(*pools):
        try:
            yield repr(function(*arguments))
        except BaseException as error:
            yield chain(error)


@pytest.mark.parametrize("case", CASES.values(), ids=CASES)
def test_the_layer_does_what_plain_python_does(case):
    function, plain, *pools = case
    assert [*outcomes(function, pools)] == [*outcomes(plain, pools)]
