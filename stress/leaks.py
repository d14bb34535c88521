"""Repeats every operation until it leaves nothing behind: no block, object, reference, descriptor or byte of heap."""

import ctypes
import gc
import os
import sys
from contextlib import suppress

from stress.child import in_child
from stress.operations import OPERATIONS, SHORT, native, staged

ROUNDS = 3
KINDS = ["blocks", "bytes of native heap", "bytes in mappings", "descriptors", "collectable objects", "references"]
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


def growth(act, constants=()):
    """What each round leaves of each kind, or the least where that varies."""
    act()  # The first round makes what stays.
    before, most = measure(constants), float("inf")  # which is kept, and no constant: it would count as one less
    least = [most] * len(KINDS)
    for _ in range(ROUNDS):
        act()
        now = measure(constants)
        least, before = [min(least, b - a) for least, a, b in zip(least, before, now)], now
    return least


def call_all(rows):
    constants = [*{id(o): o for o in gc.get_referents(*gc.get_objects())}.values()]
    gc.freeze()

    def act():
        for row in rows:
            with staged(row, native), suppress(BaseException):
                row.call(native)

    return growth(act, constants)


def main():
    if not os.environ.items() >= UNCACHED.items():
        os.execve(sys.executable, sys.orig_argv, os.environ | UNCACHED)
    found = []
    groups = {"all of them": [*OPERATIONS.values()] * 2} | {name: [row] * 10 for name, row in OPERATIONS.items()}
    for name, group in groups.items():
        grown = in_child(call_all, group)
        if isinstance(grown, int) or max(grown) > 0:
            found.append(f"{name}: {grown}")
        if SHORT and not found:
            break  # Only where all at once leave something, each is called alone.
    print(f"{len(OPERATIONS)} operations, {len(found)} leaks of {KINDS}", *found, sep="\n    ")
    return found
