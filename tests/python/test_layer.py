"""What the layer over the C interface does where no operation of the module shows it."""

import ctypes
import sys
from itertools import count

import layer_test as layer
import pytest
from support.cases import raising

fails, fails_again = raising(KeyError, "body"), raising(OSError, "again")
FAILED = ["KeyError('body')"]


def contexts(error):
    """The exception, its context, the context of that, and so on."""
    return [repr(error), *contexts(error.__context__)] if error else []


def manager(exit, enter=str, **of_its_own):
    vars(made := type("Manager", (), {"__enter__": enter, "__exit__": exit})()).update(of_its_own)
    return made


def leave(_, type, value, traceback):
    raise LookupError(type, value, traceback is getattr(value, "__traceback__", None))


def swap_handled(*_):
    ctypes.pythonapi.PyErr_SetHandledException(ctypes.py_object(OSError()))


#: What is called, and what it returns, or the exception that it ends with and its contexts.
BLOCKS = [
    (layer.try_finally, [fails, fails_again], ["OSError('again')", *FAILED]),
    (layer.with_, [manager(leave), repr], ["LookupError(None, None, True)"]),
    (layer.with_, [manager(leave), fails], ["LookupError(<class 'KeyError'>, KeyError('body'), True)", *FAILED]),
    (layer.with_, [manager(fails_again, fails), repr], FAILED),
    (layer.with_, [manager(lambda *_: False, __exit__=fails_again), fails], FAILED),
    (layer.with_, [manager(lambda *_: True), fails], None),
    (layer.with_, [manager(swap_handled), fails], FAILED),
    (layer.with_, [[], repr], ["TypeError(\"'list' object does not support the context manager protocol\")"]),
]


@pytest.mark.parametrize(("function", "arguments", "expected"), BLOCKS)
def test_blocks_return_or_raise_with_the_contexts_of_their_statements(function, arguments, expected):
    try:
        result = function(*arguments)
    except Exception as error:
        result = contexts(error)
    assert result == expected


def test_nothing_stays_handled_in_a_generator_that_goes_on_elsewhere():
    swallow = manager(lambda *_: [handled.extend(contexts(sys.exception()))])
    steps, handled = (step() for step in (lambda: layer.with_(swallow, fails), sys.exception)), []
    try:
        raise ValueError
    except ValueError:
        next(steps)
    assert (handled, next(steps)) == ([*FAILED, "ValueError()"], None)


def test_callee_is_looked_up_before_its_arguments_are_evaluated_in_order():
    def count_and_rebind():
        layer.late = None
        return next(numbers)

    layer.late, numbers = lambda *args, key: (args, key), count()
    assert layer.in_order(count_and_rebind) == [((0,), 1), "2 3", (4, 5)]


def test_subclasses_are_asked_for_what_they_do_in_their_own_way():
    answers = {"strip": "stripped", "get": "got", "__format__": "formatted", "__add__": "sum", "startswith": False}
    answers |= {"endswith": False, "__contains__": True, "__eq__": False, "__ne__": True}
    methods = {name: lambda *_, answer=answer: answer for name, answer in answers.items()}
    methods |= {name: lambda *_, name=name: asked.append(name) for name in ("append", "pop")}
    asked, named = [], type("Meta", (type,), {"__name__": "named"})
    for base in (str, list, dict):
        own = named("Own", (base,), methods | {"__iter__": lambda _: iter([1, 2])})()
        assert layer.use(own) == [*answers.values(), "named", 1, 2]
    assert asked == ["append", "pop"] * 3
