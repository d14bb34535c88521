"""The wallet key file: what lies at its path, who may read it, and what happens when the path is swapped."""

import os
from pathlib import Path

import pytest
from differential import Scenario, agree, walk, write

KEY, NEW_KEY, PATH = "ab" * 32, "cd" * 32, Path("data/wallet.key")
CALLS = {
    "read": lambda m: m._read_wallet_key("data"),
    "write": lambda m: m._write_wallet_key("data", NEW_KEY),
    "write surrogate": lambda m: m._write_wallet_key("data", "\ud800"),
    "write number": lambda m: m._write_wallet_key("data", 5),
    "check directory": lambda m: m._check_wallet_fd("path", os.open("data", os.O_RDONLY)),
    "prefix": lambda m: [m._normalize_key(key) for key in ("", "a", "0xa", "0Xa", "x0")],
    "prefix number": lambda m: m._normalize_key(5),
}


def swap_for(make):
    def swap(*_):
        PATH.parent.mkdir(exist_ok=True)
        if PATH.exists():
            PATH.rename("moved")
        make(PATH)

    return swap


SWAPS = {
    "link": swap_for(lambda path: path.symlink_to("../secret")),
    "dangling link": swap_for(lambda path: path.symlink_to("nowhere")),
    "directory": swap_for(Path.mkdir),
    "FIFO": swap_for(os.mkfifo),
    "nothing": swap_for(lambda path: None),
}
STATES = SWAPS | {
    "no directory": lambda *_: None,
    "key": lambda *_: write(PATH, f" {KEY} \n"),
    "public": lambda *_: write(PATH, KEY, 0o644),
    "foreign": lambda m, patch: (write(PATH, KEY), patch.setattr(os, "getuid", lambda: 12345)),
    "as on Windows": lambda m, patch: (
        write(PATH, KEY),
        [patch.delattr(os, n) for n in ("getuid", "O_NOFOLLOW", "fchmod")],
    ),
    "undecodable": lambda *_: write(PATH, "\udcff"),
    "file above": lambda *_: write("data"),
    "path object": lambda m, _: (write(PATH), setattr(m, "resolve_data_dir", lambda data_dir, ensure: Path("data"))),
}


def with_secret(state):
    return lambda m, patch: (write("secret", "of somebody else"), STATES[state](m, patch))


SCENARIOS = [
    *(Scenario(f"{call} {state}", with_secret(state), CALLS[call]) for state in STATES for call in ("read", "write")),
    *(Scenario(name, STATES["key"], call) for name, call in CALLS.items()),
    Scenario("check foreign", STATES["foreign"], lambda m: m._check_wallet_fd("path", os.open(PATH, os.O_RDONLY))),
]


def test_key_file_is_handled_as_in_plain_python(scenario, directory):
    agree(scenario, directory)


@pytest.mark.parametrize("call", ["read", "write"])
@pytest.mark.parametrize("state", ["nothing", "key", "public"])
def test_no_call_follows_a_link_that_was_swapped_in_or_shows_the_key_to_others(call, state, directory):
    def prepare(module, patch):
        with_secret(state)(module, patch)
        open_ = os.open  # nobody is at the other end of the FIFO
        patch.setattr(os, "open", lambda path, flags, *mode: open_(path, flags | os.O_NONBLOCK, *mode))

    def look():
        if PATH.exists() and PATH.stat().st_mode & 0o077:
            exposed.add(PATH.read_text())

    disturbances = {name: [swap] for name, swap in SWAPS.items()} | {"look": [look]}
    exposed, umask = set(), os.umask(0)
    for trace in walk(Scenario("swap", prepare, CALLS[call]), directory, disturbances):
        assert trace.files["secret"] == (0o100600, b"of somebody else")
        assert "somebody" not in trace.outcome[1]
    os.umask(umask)
    assert exposed <= ({KEY, ""} if state == "public" else set())
