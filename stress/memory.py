"""Makes every allocation of every operation fail in turn, alone and with all that follow."""

import gc
import re
import signal
import sys
from collections import Counter
from functools import cache, partial
from importlib.machinery import SourceFileLoader

from support.cases import changed, open_descriptors, state
from support.cases import plain as plain_value
from support.recorder import here

from stress.child import crashed_in_library, in_child
from stress.operations import OPERATIONS, STAGE, arguments, chain, native, never_called, plain, staged

try:
    import _testcapi
except ImportError:
    sys.exit("Allocations fail through _testcapi, which this interpreter comes without.")

# CPython may crash where it compiles without memory: what it has compiled once it takes again.
SourceFileLoader.source_to_code = cache(SourceFileLoader.source_to_code)

FAR = 50_000  # more allocations than any operation makes
LARGE = 1 << 64  # no such integer is taken from those that the interpreter keeps
ALL = 10_000  # not quite: where the interpreter must allocate to handle an exception, it tries until it can
FAULTS = -signal.SIGSEGV, -signal.SIGBUS  # by chance the one or the other


def show(result, error=None):
    """As text that is the same in every run, and for each exception that comes of missing memory. CPython loses the
    exception of a Python function (ours are built-in ones) that it has no memory to call."""
    kinds, text = {*map(type, chain(error))}, repr(chain(error)) if error else repr(plain_value(result))
    if (MemoryError in kinds and SystemError not in kinds) or re.search(
        "can't allocate|<function .* returned NULL", text
    ):
        return "MemoryError"
    return here(re.sub(r"(?<=without exception) set|(?<=\D)\d{19}\b", "", text))


def attempt(module, row, first, stop):
    """What is seen of the operation with the allocations from `first` to `stop` failing, and of the same once there is
    memory again; and how many allocations it made where none failed."""
    with staged(row, module):
        result, error, again, left = None, None, None, LARGE
        before, descriptors = state(module, STAGE), open_descriptors()
        gc.collect()  # empties the free lists too
        _testcapi.set_nomemory(first, stop)
        try:
            result = row.call(module)
        except BaseException as raised:
            error = raised
        try:
            while first == FAR:
                left += 1  # each is an allocation
        except MemoryError:
            pass  # not `suppress`, which is a call
        _testcapi.remove_mem_hooks()
        seen = {("outcome", show(result, error)), *(("left open", fd) for fd in open_descriptors() - descriptors)}
        for section, now in state(module, STAGE).items():
            values = changed(before[section], now)
            seen |= {(f"{section} {re.sub('(?<=_settings-).*', '', name)}", show(v)) for name, v in values.items()}
        try:
            result = row.call(module)
        except BaseException as raised:
            again = raised
        return seen | {("again", show(result, again))}, FAR + LARGE - left


def oddities(expected, warm, row, first, stop, module):
    """What the attempt shows, other than expected, in a process of its own, where this module or `warm` did the same
    before; and how many allocations there were."""

    def body():
        attempt(warm or module, row, FAR, FAR + ALL)  # the first time makes allocations of its own
        return attempt(module, row, first, stop)

    answer = in_child(body)
    if isinstance(answer, int):
        return {("exit status", "memory fault" if answer in FAULTS else answer)}, 0
    return answer[0] - expected, answer[1]


def attempts(module, row, most=None, warm=None):
    """For at most so many allocations, spread over all: which, what is odd for the first time, and a function that
    tells what a repetition shows."""
    clean, allocations = oddities(set(), warm, row, FAR, FAR + ALL, module)
    expected = clean | {("outcome", "MemoryError"), *(("again", what) for kind, what in clean if kind == "outcome")}
    for n in sorted(range(allocations), key=lambda n: f"{n:016b}"[::-1])[:most]:
        for stop, what in ((n + 1, "alone"), (n + ALL, "and all after")):
            repeat = partial(oddities, {*expected}, warm, row, n, stop, module)
            shown, _ = repeat()
            expected |= {part for part in shown if part[0] != "exit status"}
            yield f"allocation {n} {what}", shown, lambda repeat=repeat: repeat()[0]


def is_explained(shown, repeat, in_plain):
    """Whether the library's own code crashed, or plain Python shows the same. An interpreter that spoils its memory
    shows something else each time."""
    if "exit status" in dict(shown) and ("exit status" not in dict(repeat()) or crashed_in_library()):
        return True
    if plain is None:  # A crash is surely none of the prescribed steps.
        return "exit status" not in dict(shown)
    return shown <= in_plain or any(again and again <= in_plain for again in (repeat() for _ in range(20)))


def walk(row, most, warm):
    """How many attempts there were, what plain Python explains of them, where it does the same, and what nothing
    explains."""
    walked = [*attempts(native, row, most, warm)]
    odd = set().union(*(shown for _, shown, _ in walked))
    for spread in (most and 40, None):  # all of plain Python's allocations where those do not explain it
        explanations = attempts(plain, row, spread, warm) if plain and odd else ()
        in_plain = set().union(*(shown for _, shown, _ in explanations))
        unexplained = {what: s for what, s, repeat in walked if s and not is_explained(s, repeat, in_plain)}
        if not unexplained:
            break
    return len(walked), odd & in_plain, unexplained


def main():
    option, names = arguments()
    most, warm, step = {"--short": (4, None, 6), "--cold": (40, plain, 1)}.get(option, (None, None, 1))
    if option == "--cold" and plain is None:
        sys.exit(print("Skipped: nothing but the plain rendering warms up the interpreter without the module."))
    total = Counter()
    missed = in_child(never_called)
    gc.freeze()
    for name in names[::step]:
        tried, explained, unexplained = walk(OPERATIONS[name], most, warm)
        total.update(operations=1, attempts=tried, explained=len(explained), unexplained=len(unexplained))
        lines = [*(f"as in plain Python: {part}" for part in explained), *unexplained.items()]
        print(f"{name}: {tried} attempts", *lines, sep="\n    ", flush=True)
    print(f"functions never called: {sorted(missed)}", dict(total))
    sys.exit(bool(missed or total["unexplained"]))


if __name__ == "__main__":
    main()
