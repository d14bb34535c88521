"""Makes every allocation of every operation fail in turn, alone and with all that follow."""

import gc
import py_compile
import re
import signal
import sys
import tempfile
import zlib
from collections import Counter
from contextlib import suppress
from functools import partial
from itertools import chain, count
from pathlib import Path

from differential import SOURCE, native, open_descriptors, own_functions, plain, show_file

from stress.child import answers_of_child, in_child
from stress.operations import OPERATIONS, Watched, arguments, functions_reached, staged

try:
    import _testcapi
except ImportError:
    sys.exit("Allocations fail through _testcapi, which this interpreter comes without.")

FAR = 50_000  # more allocations than any operation makes
ALL = 10_000  # not quite: where the interpreter must allocate to handle an exception, it tries until it can
TOGETHER = 30  # attempts in a process
FAULTS = -signal.SIGSEGV, -signal.SIGBUS  # by chance the one or the other
LOADED = dict(sys.modules)


def show(result, error=None):
    """As text without addresses, and without the stand-in for which the interpreter misses an exception; the same for
    each exception that comes of missing memory."""
    links = [error]
    while (link := links[-1] and (links[-1].__cause__ or links[-1].__context__)) not in links:
        links.append(link)
    kinds = {*map(type, links)}
    if (MemoryError in kinds or "can't allocate" in repr(links)) and SystemError not in kinds:  # a lock, for instance
        return "MemoryError"
    text = re.sub(r"<function .*?> returned NULL without setting an", "error return without", repr(error or result))
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


def attempt(module, operation, directory, which, first, stop):
    """For the operation's `which`-th call, if there is one, with the allocations from `first` to `stop` failing: its
    outcome, the state that it left, and the outcome of the same call once there is memory again. Where all goes well,
    the state before too, and the number of allocations."""

    def disturb(function, *args, **kwargs):
        if next(calls) != which:
            return function(*args, **kwargs)
        result, error, left, before = None, None, 256, first == FAR and state(module, directory)
        gc.collect()  # empties the free lists too
        _testcapi.set_nomemory(first, stop)
        try:
            result = function(*args, **kwargs)
        except BaseException as raised:
            error = raised
        try:
            while before:
                left += 1  # every integer from 257 on is an allocation
        except MemoryError:
            pass  # not `suppress`, which is a call
        _testcapi.remove_mem_hooks()
        found = {"outcome": show(result, error)} | state(module, directory)
        try:
            found["again"] = show(function(*args, **kwargs))
        except BaseException as raised:
            found["again"] = show(None, raised)
        answers.append((found, before, FAR + 256 - left))
        raise KeyboardInterrupt  # The rest does not matter.

    calls, answers = count(), []
    with staged(operation, module, directory), suppress(BaseException):
        operation.call(Watched(module, disturb))
    return answers and answers[0]


def warm_up(*call):
    attempt(*call, FAR, FAR + ALL)  # the first time makes allocations of its own


def oddities(expected, *arguments):
    found, *_ = attempt(*arguments)
    return {(name, found.get(name)) for name in dict(expected) | found} - expected


def in_own_process(expected, warm, call, first, stop, module, shift=0):
    body = partial(oddities, expected, module, *call, max(first + shift, 0), stop + shift)
    _, odd = answers_of_child([partial(warm_up, warm or module, *call), body])
    return {("exit status", "memory fault" if odd in FAULTS else odd)} if isinstance(odd, int) else odd


def attempts(module, name, directory, most=None, warm=None):
    """For each call of the operation, the attempts for at most so many of its allocations, spread over all, what they
    are the first to show but success, memory that ran out, and the state before, and a function that repeats them in
    either module. Many run in one process, but what they show counts only when they show it in one of their own too.
    Where only the module `warm` has done the same before, each runs in one of its own at once."""
    for which in count():
        call = OPERATIONS[name], directory, which
        warming = partial(warm_up, warm or module, *call)
        _, answer = answers_of_child([warming, partial(attempt, module, *call, FAR, FAR + ALL)])
        if not answer:
            return
        found, before, allocations = answer
        expected = {("outcome", "MemoryError"), ("again", found["outcome"]), *before.items(), *found.items()}
        expected |= {(name, None) for name in before.keys() ^ found.keys()}
        spread = sorted(range(allocations), key=lambda n: f"{n:016b}"[::-1])[:most]
        limits = [(n, stop) for n in spread for stop in (n + 1, n + ALL)]
        while limits:
            bodies = [partial(oddities, expected, module, *call, *limit) for limit in limits[: 1 if warm else TOGETHER]]
            _, *found = answers_of_child([warming, *bodies])
            for (n, stop), odd in zip(limits, found):
                what = f"call {which}, allocation {n} {'alone' if stop == n + 1 else 'and all after'}"
                repeat = partial(in_own_process, {*expected}, warm, call, n, stop)
                shown = repeat(module) if odd else set()
                expected |= {part for part in shown if part[0] != "exit status"}
                yield what, shown, repeat
            del limits[: len(found)]


def is_explained(shown, repeat, in_plain):
    """Whether plain Python shows the same, or does so in processes of their own for the allocations around this one. An
    interpreter that spoils its memory shows something else each time."""
    if shown <= in_plain:
        return True
    in_plain = in_plain.union(*(repeat(plain, shift) for shift in range(-9, 10)))
    return shown <= in_plain or any(again and again <= in_plain for again in (repeat(native) for _ in range(20)))


def walk(name, directory, most, warm):
    """How many attempts there were, what plain Python explains of them, where it does the same or its like, and what
    nothing explains."""
    walked = [*attempts(native, name, directory, most, warm)]
    odd, in_plain = set().union(*(shown for _, shown, _ in walked)), set()
    family = [name, *(other for other in OPERATIONS if other.split(":")[0] == name.split(":")[0] and ":" in name)]
    explanations = chain.from_iterable(attempts(plain, each, directory) for each in family)
    while not odd <= in_plain and (found := next(explanations, None)):
        in_plain |= found[1]
    unexplained = {
        what: shown - in_plain for what, shown, repeat in walked if not is_explained(shown, repeat, in_plain)
    }
    return len(walked), odd & in_plain, unexplained


def main():
    option, names = arguments()
    most, warm = {"--short": (3, None), "--cold": (40, plain)}.get(option, (None, None))
    total = Counter()
    with tempfile.TemporaryDirectory(dir="/dev/shm") as parent:
        sys.dont_write_bytecode, sys.pycache_prefix = False, parent  # compiling is no part of any operation
        py_compile.compile(SOURCE, doraise=True)
        directory = Path(parent, "stage")
        missed = own_functions(native).keys() - in_child(functions_reached, directory)
        gc.freeze()
        for name in names:
            tried, explained, unexplained = walk(name, directory, most, warm)
            total.update(operations=1, attempts=tried, explained=len(explained), unexplained=len(unexplained))
            lines = [*(f"as in plain Python: {part}" for part in explained), *unexplained.items()]
            print(f"{name}: {tried} attempts", *lines, sep="\n    ", flush=True)
    print(f"functions never reached: {sorted(missed)}", dict(total))
    sys.exit(bool(missed or total["unexplained"]))


if __name__ == "__main__":
    main()
