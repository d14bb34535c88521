"""Makes every allocation of every operation fail in turn, alone and with all that follow."""

import _testcapi  # which some interpreters come without
import gc
import re
import sys
from functools import cache
from importlib.machinery import SourceFileLoader

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


def attempted(module, row, first=FAR, stop=FAR + ALL):
    """The same in a process of its own."""

    def body():
        sys.stderr = None  # which CPython tells what it has no memory for
        attempt(module, row, FAR, FAR + ALL)  # The interpreter's first time makes allocations of its own.
        return attempt(module, row, first, stop)

    answer = in_child(body)
    return ({("crashed", answer < 0)}, 0) if isinstance(answer, int) else answer


def oddities(module, row, most=None):
    """Each attempt, and a function that tells what it shows other than expected."""
    clean, allocations = attempted(module, row)
    expected = clean | {("outcome", "MemoryError"), *(("again", what) for kind, what in clean if kind == "outcome")}
    for n in sorted(range(allocations), key=lambda n: f"{n:016b}"[::-1])[:most]:  # spread over all
        for stop, what in ((n + 1, "alone"), (n + ALL, "and all after")):
            yield f"allocation {n} {what}", lambda n=n, stop=stop: attempted(module, row, n, stop)[0] - expected


def walk(row, most):
    """How many attempts there were, and those that nothing explains that plain Python shows."""
    tried = [(what, look, look()) for what, look in oddities(native, row, most)]
    odd, in_plain = [each for each in tried if each[2]], set()
    for _, look in oddities(plain, row) if odd else ():
        in_plain |= look()
        if not (odd := [each for each in odd if not each[2] <= in_plain]):
            break
    # An interpreter that spoils its memory shows something else each time, after a crash perhaps nothing.
    lasting = [each for each in odd if not any((each[1]() or each[2] - CRASH) <= in_plain for _ in range(20))]
    return len(tried), {what: shown for what, _, shown in lasting}


def main():
    if plain is None:
        return print("Skipped: nothing tells apart what the interpreter does itself without memory.")
    attempts, findings = 0, 0
    gc.freeze()
    names = [*OPERATIONS][:: 6 if SHORT else 1]
    for name in names:
        tried, unexplained = walk(OPERATIONS[name], 4 if SHORT else None)
        print(f"{name}: {tried} attempts", *unexplained.items(), sep="\n    ", flush=True)
        attempts, findings = attempts + tried, findings + len(unexplained)
    print(f"{len(names)} operations, {attempts} attempts, {findings} findings")
    return findings
