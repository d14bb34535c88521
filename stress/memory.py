"""Makes every allocation of every operation fail in turn, alone and with all that follow, each in its own process."""

import gc
import re
import sys
import tempfile
import zlib
from collections import Counter, namedtuple
from contextlib import suppress
from functools import partial
from itertools import chain, count
from pathlib import Path

import pytest
from differential import Recorder, native, open_descriptors, own_functions, plain, show_file

from stress.child import in_child
from stress.operations import OPERATIONS, Watched, arguments, functions_reached, staged

try:
    import _testcapi
except ImportError:
    sys.exit("Allocations fail through _testcapi, which this interpreter comes without.")

FAR = 50_000  # more allocations than any operation makes
ALL = 10_000  # not quite: where the interpreter must allocate to handle an exception, it tries until it can
LOADED = dict(sys.modules)


Answer = namedtuple("Answer", "outcome state again before calls left")


class Done(BaseException):
    pass


def show(value):
    """As text without addresses, and without the stand-in for which the interpreter misses an exception."""
    text = re.sub(r"<function .*?> returned NULL without setting an exc", "error return without exc", repr(value))
    return re.sub(r" at 0x\w+|(?<=without exception) set", "", text)


def state(module, directory):
    """All that an operation may change."""
    modules = dict.fromkeys(LOADED) | sys.modules
    parts = {f"module {name}": show(value) for name, value in modules.items() if LOADED.get(name) is not value}
    parts |= {f"option {name}": show(value) for name, value in module._config.items()}
    for path in directory.rglob("*"):
        mode, content = show_file(path)
        name = re.sub(r"(?<=_settings-).*", "", str(path.relative_to(directory)))
        parts[f"file {name}"] = mode, content if len(content or "") < 1000 else zlib.crc32(content)
    return parts | {"manager": show(vars(module).get("_auth_manager")), "descriptors": show(open_descriptors())}


def links(error):
    return [error, *links(error.__cause__ or error.__context__)] if error else []


def show_outcome(result, error):
    kinds = {type(link) for link in links(error)}
    return "MemoryError" if MemoryError in kinds and SystemError not in kinds else show(error or result)


def repeated(function, *args, **kwargs):
    try:
        return show_outcome(function(*args, **kwargs), None)
    except BaseException as error:
        return show_outcome(None, error)


def allocations_left():
    """256 more than succeed before the first that fails: every integer from there on is one."""
    left = 256
    try:
        while True:
            left += 1
    except MemoryError:  # not `suppress`, which is a call
        return left


def attempt(module, operation, directory, which, first, stop, failing=None):
    """The outcome of the operation's `which`-th call, if there is one, with the allocations from `first` to `stop`
    failing, or the call numbered `failing` that it makes; the state that it left, the outcome of the same call once
    there is memory again, the state before, the number of calls made, and how far the first failure was."""

    def disturb(function, *args, **kwargs):
        if next(calls) != which:
            return function(*args, **kwargs)
        recorder, before, result, error, left = Recorder({failing: MemoryError}), None, None, None, None
        if first == FAR:
            before = state(module, directory)
        with pytest.MonkeyPatch.context() as patch:
            if failing is not None:
                recorder.install(module, patch)
                recorder.listening = True
            _testcapi.set_nomemory(first, stop)
            try:
                result = function(*args, **kwargs)
            except BaseException as raised:
                error = raised
            if before:
                left = allocations_left()
            _testcapi.remove_mem_hooks()
            recorder.listening = False
        outcome, after = show_outcome(result, error), state(module, directory)
        again = repeated(function, *args, **kwargs)
        answers.append(Answer(outcome, after, again, before, len(recorder.calls), left))
        raise Done

    calls, answers = count(), []
    with staged(operation, module, directory), suppress(BaseException):
        operation.call(Watched(module, disturb))
    return answers and answers[0]


def attempts(module, name, directory, chosen):
    """For each call of the operation, the attempts for the chosen of its allocations, and what they show but success,
    memory that ran out, and the state before."""
    for which in count():
        run = partial(attempt, module, OPERATIONS[name], directory, which)
        undisturbed = in_child(partial(run, FAR, FAR + ALL))
        if not undisturbed:
            return
        before = undisturbed.before
        expected = {("outcome", "MemoryError"), ("again", undisturbed.outcome), *before.items()}
        expected |= parts(undisturbed, before)
        for n in chosen(range(FAR + 256 - undisturbed.left)):
            for what, stop in (("alone", n + 1), ("and all after", n + ALL)):
                found = parts(in_child(partial(run, n, stop)), before)
                yield f"call {which}, allocation {n} {what}", found - expected


def failing_calls(module, name, directory):
    """The same for each call that a call of the operation makes: what it is prescribed to do when memory runs out."""
    for which in count():
        for failing in count():
            answer = in_child(partial(attempt, module, OPERATIONS[name], directory, which, FAR, FAR + ALL, failing))
            if not answer:
                return
            if isinstance(answer, str) or answer.calls <= failing:
                break
            yield f"call {which}, which fails to call {failing}", parts(answer, answer.before)


def parts(answer, before):
    """The outcomes, and each part of the state."""
    if isinstance(answer, str):
        return {("ended", answer)}
    state = {(name, answer.state.get(name)) for name in before | answer.state}
    return {("outcome", answer.outcome), ("again", answer.again)} | state


def three(allocations):
    return allocations[len(allocations) // 6 :: len(allocations) // 3 + 1]


def spread(allocations):
    return sorted(allocations, key=lambda n: n % 16)


def walk(name, directory, chosen):
    """How many attempts there were, what of them is as in plain Python, and what nothing explains."""
    walked = dict(attempts(native, name, directory, chosen))
    odd, in_plain = set().union(*walked.values()), set()
    for _, found in (
        chain(failing_calls(plain, name, directory), attempts(plain, name, directory, spread)) if odd else ()
    ):
        in_plain |= found
        if odd <= in_plain:
            break
    return len(walked), odd & in_plain, {what: found - in_plain for what, found in walked.items() if found - in_plain}


def main():
    short, names = arguments()
    total = Counter()
    with tempfile.TemporaryDirectory(dir="/dev/shm") as parent:
        sys.dont_write_bytecode, sys.pycache_prefix = False, parent  # compiling is no part of any operation
        directory = Path(parent, "stage")
        missed = own_functions(native).keys() - in_child(partial(functions_reached, directory))
        gc.freeze()
        for name in names:
            tried, explained, unexplained = walk(name, directory, three if short else list)
            total.update(operations=1, attempts=tried, unexplained=len(unexplained))
            print(
                f"{name}: {tried} attempts",
                *(f"as in plain Python: {part}" for part in explained),
                *unexplained.items(),
                sep="\n    ",
                flush=True,
            )
    print(f"functions never reached: {sorted(missed)}", dict(total))
    sys.exit(bool(missed or total["unexplained"]))


if __name__ == "__main__":
    main()
