"""Repeats every operation until it leaves nothing behind: no block, object, reference, descriptor or byte of heap."""

import ctypes
import gc
import os
import sys
import tempfile
from array import array
from collections import deque
from contextlib import suppress
from pathlib import Path

from differential import native, plain

from stress.child import in_child
from stress.operations import OPERATIONS, Watched, arguments, staged

MOST_ROUNDS = 20
KINDS = "blocks, bytes of native heap, bytes in mappings, descriptors, collectable objects, references"


class HeapInfo(ctypes.Structure):
    _fields_ = [(f"number{n}", ctypes.c_size_t) for n in range(10)]


mallinfo2 = ctypes.CDLL(None).mallinfo2
mallinfo2.restype = HeapInfo


def measure(constants):
    """What is in use, of each kind; references are those to what there was before."""
    sys._clear_type_cache()  # it fills slowly
    gc.collect()
    heap, descriptors = mallinfo2(), len(os.listdir("/proc/self/fd"))
    references = sum(map(sys.getrefcount, constants))
    blocks = sys.getallocatedblocks(), heap.number7, heap.number4
    return array("q", [*blocks, descriptors, len(gc.get_objects()), references])


def growth(module, names, directory, repeats):
    """What the last round of the operations has left behind: the second in a row that left nothing, the third that left
    the same, or one of too many."""
    constants = [*{id(o): o for o in gc.get_referents(*gc.get_objects())}.values()]
    gc.freeze()
    grown = deque((array("q", [n] * 6) for n in range(3)), maxlen=3)  # as many objects as later on
    before = measure(constants)
    for _ in range(MOST_ROUNDS):
        for name in names * repeats:
            with staged(OPERATIONS[name], module, directory), suppress(BaseException):
                OPERATIONS[name].call(Watched(module))
        now = measure(constants)
        grown.append(array("q", [b - a for a, b in zip(before, now)]))
        before = now
        if max(*grown[1], *grown[2]) <= 0 or grown[0] == grown[1] == grown[2]:
            break
    return list(grown[2])


def leaks(names, directory, repeats):
    """Those of the operations that leave something behind, and more than in plain Python; found by halving."""
    grown = in_child(growth, native, names, directory, repeats)
    if not isinstance(grown, int) and max(grown) <= 0:
        return []
    if half := len(names) // 2:
        return leaks(names[:half], directory, repeats) + leaks(names[half:], directory, repeats)
    excused = in_child(growth, plain, names, directory, repeats)
    print(f"{names[0]} leaves {grown}, in plain Python {excused}: {KINDS}")
    crashed = isinstance(grown, int) or isinstance(excused, int)
    return names if crashed or any(n > max(m, 0) for n, m in zip(grown, excused)) else []


def main():
    option, names = arguments()
    with tempfile.TemporaryDirectory(dir="/dev/shm") as parent:
        groups, repeats = ([names], 1) if option == "--short" else ([[name] for name in names], 10)
        found = [name for group in groups for name in leaks(group, Path(parent, "stage"), repeats)]
    print(f"{len(names)} operations, {len(found)} leaks", *found, sep="\n    ")
    sys.exit(bool(found))


if __name__ == "__main__":
    main()
