"""Digests, the copies that are named after them, and which of these are removed."""

import os
from pathlib import Path

import pytest
from differential import Scenario, agree, walk, write

COPIES = ["m-1.so", "m-2.so", "n-1.so", "m-3.so", "m-4.so.bak", "mm-1.so", "m-folder.so", "m-5.so"]
PREFIX = "data/.sablecrest-runtime-"


def put(copy, age=0):
    (os.mkdir if "folder" in copy else write)(PREFIX + copy)
    os.utime(PREFIX + copy, ns=(0, age))


def aged(*copies, size=1):
    """Two at a time are of the same age."""

    def prepare(module, patch):
        write("data/m.so", "x" * size)
        os.symlink("data", "link")
        os.symlink("nowhere", PREFIX + "m-dangling.so")
        for age, copy in enumerate(copies):
            put(copy, age // 2)

    return prepare


def refusing(*names):
    """A volume without hard links, files that are in use."""

    def refuse(*_):
        raise PermissionError(13, "refused")

    return lambda m, patch: (aged(*COPIES)(m, patch), [patch.setattr(os, name, refuse) for name in names])


def copy_twice(m):
    return [m._content_addressed_extension_path("m", "link/m.so", m._sha256_file("data/m.so")) for _ in range(2)]


def prune(m, keep="m-1.so", **max_copies):
    return m._prune_runtime_extension_copies("m", PREFIX + keep, **max_copies)


SCENARIOS = [
    Scenario("copy", aged(), copy_twice),
    Scenario("digest", aged(size=(1 << 20) + 1), lambda m: m._sha256_file("data/m.so")),
    Scenario("prune", aged(*COPIES), prune),
    Scenario("prune around one in the middle", aged(*COPIES), lambda m: prune(m, "m-3.so", max_copies=3)),
    Scenario("prune all but another", aged(*COPIES), lambda m: prune(m, "n-1.so", max_copies=0)),
    Scenario("prune few", aged("m-1.so"), lambda m: prune(m, max_copies=3)),
    Scenario("copy without links", refusing("link"), copy_twice),
    Scenario("copy and prune what is in use", refusing("link", "unlink"), lambda m: (copy_twice(m), prune(m))),
    Scenario("prune nowhere", aged(), lambda m: m._prune_runtime_extension_copies("m", "nowhere/m", max_copies="2")),
]


def test_copies_are_made_and_pruned_as_in_plain_python(scenario, directory):
    agree(scenario, directory)


@pytest.mark.parametrize("copy", ["m-2.so", "m-7.so"])
def test_copies_that_appear_or_vanish_while_others_are_pruned_are_no_failure(copy, directory):
    changes = {"appears": [lambda: put(copy)], "vanishes": [lambda: Path(PREFIX + copy).unlink(missing_ok=True)]}
    for trace in walk(Scenario("changing", aged(*COPIES), prune), directory, changes):
        assert trace.outcome == ("returned", "None")
        assert {PREFIX + kept for kept in ("m-1.so", "n-1.so", "mm-1.so", "m-4.so.bak")} <= trace.files.keys()
