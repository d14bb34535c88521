"""Makes every allocation of every operation fail in turn, alone and with all that follow."""

import _testcapi  # which some interpreters come without
import gc
import re
import sys
from functools import cache
from importlib.machinery import SourceFileLoader
from itertools import batched

from support.cases import changed, open_descriptors, state
from support.cases import plain as plain_value
from support.recorder import here

from stress.child import in_child
from stress.operations import OPERATIONS, SHORT, STAGE, chain, native, plain, staged

# CPython may crash where it compiles without memory: what it has compiled once it takes again.
SourceFileLoader.source_to_code = cache(SourceFileLoader.source_to_code)

FAR = 50_000  # more allocations than any operation makes
LARGE = 1 << 64  # no such integer is taken from those that the interpreter keeps
ALL = 10_000  # not quite: where the interpreter must allocate to handle an exception, it tries until it can
CRASH = {("crashed", True)}
TOGETHER = 50  # attempts of one process, of which those that show something odd are repeated, each in its own


def show(result, error=None):
    """As text that is the same in every run, and for each exception that comes of missing memory."""
    kinds, text = {*map(type, chain(error))}, repr(chain(error) or plain_value(result))
    # CPython loses the exception of a Python function (ours are built-in ones) that it has no memory to call.
    lost = re.search("can't allocate|<function .* returned NULL", text)
    if lost or (MemoryError in kinds and SystemError not in kinds):
        return "MemoryError"
    return here(re.sub(r"(?<=without exception) set|(?<=\D)\d{19}\b", "", text))


def attempt(module, row, first, stop):
    """What is seen with these allocations failing, and then again with memory; how many there were if none failed."""
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


def attempted(module, row, spans=((FAR, FAR + ALL),)):
    """The same for each span of allocations that fail, one after the other in a process of their own."""

    def body():
        sys.stderr = None  # which CPython tells what it has no memory for
        attempt(module, row, FAR, FAR + ALL)  # The interpreter's first time makes allocations of its own.
        return [attempt(module, row, *span) for span in spans]

    answer = in_child(body)
    return [({("crashed", answer < 0)}, 0)] * len(spans) if isinstance(answer, int) else answer


def planned(module, row, most=None):
    """What may be seen, and the spans: each allocation alone and with all that follow, in an order spread over all."""
    ((clean, allocations),) = attempted(module, row)
    expected = clean | {("outcome", "MemoryError"), *(("again", what) for kind, what in clean if kind == "outcome")}
    numbers = sorted(range(allocations), key=lambda n: f"{n:016b}"[::-1])[:most]
    return expected, [(n, stop) for n in numbers for stop in (n + 1, n + ALL)]


def oddities(module, row, expected, *spans):
    """What is seen of each span that may not be."""
    return [seen - expected for seen, _ in attempted(module, row, spans)]


def walk(row, most):
    """How many attempts there were, and those that nothing explains that plain Python shows."""
    (expected, spans), odd, in_plain = planned(native, row, most), {}, set()
    for some in batched(spans, TOGETHER):
        suspects = [span for span, shown in zip(some, oddities(native, row, expected, *some), strict=True) if shown]
        odd |= {span: shown for span in suspects for shown in oddities(native, row, expected, span) if shown}
    expected_there, spans_there = planned(plain, row) if odd else (None, [])
    while odd and spans_there:
        in_plain.update(*oddities(plain, row, expected_there, spans_there.pop(0)))
        odd = {span: shown for span, shown in odd.items() if not shown <= in_plain}
    # An interpreter that spoils its memory shows something else each time, after a crash perhaps nothing.
    for _ in range(20):
        now = [(span, shown, oddities(native, row, expected, span)[0]) for span, shown in odd.items()]
        odd = {span: shown for span, shown, again in now if not (again or shown - CRASH) <= in_plain}
    return len(spans), odd.items()


def main():
    if plain is None:
        return print("Skipped: nothing tells apart what the interpreter does itself without memory.")
    attempts, findings = 0, 0
    gc.freeze()
    names = [*OPERATIONS][:: 6 if SHORT else 1]
    for name in names:
        tried, unexplained = walk(OPERATIONS[name], 4 if SHORT else None)
        print(f"{name}: {tried} attempts", *unexplained, sep="\n    ", flush=True)
        attempts, findings = attempts + tried, findings + len(unexplained)
    print(f"{len(names)} operations, {attempts} attempts, {findings} findings")
    return findings
