"""Imports the module that lies in a folder, and prints what that took in this process beyond the imports that it makes
itself: `python import_cost.py microseconds|private_kilobytes|dirty_kilobytes FOLDER`.
"""

# ruff: noqa: F401
import dataclasses
import gc
import hashlib
import importlib.util
import json
import logging
import os
import secrets
import shutil
import stat
import sys
import time
import types
import typing
import urllib.error
import urllib.request

import sablecrest
from sablecrest import auth, era_config, errors, runtime_module_freshness, settings, skills, sync


def kilobytes(kind):
    with open("/proc/self/smaps_rollup") as lines:
        return sum(int(line.split()[1]) for line in lines if line.startswith(kind))


def private_kilobytes():
    """Of the pages that no other process shares now, those of the module's file among them."""
    return kilobytes("Private_")


def dirty_kilobytes():
    """Of the pages that no other process can share, as they were written to."""
    return kilobytes("Private_Dirty")


def microseconds():
    clock = time.perf_counter if sys.platform == "win32" else time.process_time  # as in benchmark.py
    return clock() * 1e6


unit, folder = sys.argv[1:]
measure = globals()[unit]
sablecrest.__path__ = [folder]
gc.collect()
if measure is not microseconds:
    # What earlier imports have freed would hide a part of what this one takes.
    filling = [bytes(size) for size in [*range(0, 480, 16)] * 2000 + [*range(600, 20_000, 400)] * 20]
measure()  # which takes memory itself when it is first called
before = measure()
import sablecrest.agent_onboarding  # noqa: E402

print(measure() - before)
