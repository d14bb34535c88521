"""Repeats every operation until it leaves nothing behind: no block, object, reference, descriptor or byte of heap."""

import ctypes
import gc
import os
import sys
from contextlib import suppress

from stress.child import in_child
from stress.operations import OPERATIONS, arguments, native, staged

MOST_ROUNDS = 20
KINDS = "blocks, bytes of native heap, bytes in mappings, descriptors, collectable objects, references"
#: Without it, freed memory that a thread keeps for itself would count as in use until seven of each size are kept.
UNCACHED = {"GLIBC_TUNABLES": "glibc.malloc.tcache_count=0"}


class HeapInfo(ctypes.Structure):
    _fields_ = [(f"number{n}", ctypes.c_size_t) for n in range(10)]


mallinfo2 = ctypes.CDLL(None).mallinfo2
mallinfo2.restype = HeapInfo


def measure(constants):
    """What is in use, of each kind; references are those to what there was before."""
    sys._clear_type_cache()  # it fills slowly
    gc.collect()
    heap, references = mallinfo2(), sum(map(sys.getrefcount, constants))
    descriptors, objects = len(os.listdir("/proc/self/fd")), len(gc.get_objects())
    return [sys.getallocatedblocks(), heap.number7, heap.number4, descriptors, objects, references]


def growth(names, repeats):
    """What the last round of the operations has left behind: the second in a row that left nothing, or one of too
    many."""
    constants = [*{id(o): o for o in gc.get_referents(*gc.get_objects())}.values()]
    errors = [o for o in constants if issubclass(type(o), BaseException)]  # of the rows, which collect more each time
    gc.freeze()
    before, quiet = measure(constants), 0
    for _ in range(MOST_ROUNDS):
        for name in names * repeats:
            with staged(OPERATIONS[name], native), suppress(BaseException):
                OPERATIONS[name].call(native)
        for error in errors:
            error.__traceback__ = error.__context__ = error.__cause__ = None
        now = measure(constants)
        grown, before = [b - a for a, b in zip(before, now)], now
        quiet = 0 if max(grown) > 0 else quiet + 1
        if quiet == 2:
            break
    return grown


def leaks(names, repeats):
    """Those of the operations that leave something behind, found by halving."""
    grown = in_child(growth, names, repeats)
    if not isinstance(grown, int) and max(grown) <= 0:
        return {}
    if half := len(names) // 2:
        return leaks(names[:half], repeats) | leaks(names[half:], repeats)
    return {names[0]: grown}


def main():
    if not os.environ.items() >= UNCACHED.items():
        os.execve(sys.executable, sys.orig_argv, os.environ | UNCACHED)
    option, names = arguments()
    names = [name for name in names if not OPERATIONS[name].left_open]  # in the row's own hands
    groups, repeats = ([names], 1) if option == "--short" else ([[name] for name in names], 10)
    found = [leak for group in groups for leak in leaks(group, repeats).items()]
    print(f"{len(names)} operations, {len(found)} leaks ({KINDS})", *found, sep="\n    ")
    sys.exit(bool(found))


if __name__ == "__main__":
    main()
