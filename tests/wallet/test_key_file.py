"""The wallet key file: what may lie at its path, who may read it, and what is said of anything else."""

import os
from pathlib import Path
from types import ModuleType, SimpleNamespace

from support.cases import FOLDER, Case, call, checked, given, raising
from support.platforms import needs_fifo, needs_links, needs_modes, needs_owners

KEY, NEW, PATH, AT = "ab" * 32, "cd" * 32, "data/wallet.key", "HERE/data/wallet.key"
UNSAFE = OSError(f"Unsafe wallet key at {AT}. Refusing to use wallet.key with unsafe ownership, type, or permissions.")
UNREADABLE = OSError(f"Cannot read wallet from {AT}. Check file permissions.")
UNWRITABLE = OSError(f"Cannot write wallet to {AT}. Check directory permissions.")
MODES, OWNERS, LINKS = (needs_modes,), (needs_owners,), (needs_links,)
read, store, no = call("_read_wallet_key", "data"), call("_write_wallet_key", "data", NEW), raising(OSError, 5)


# The key is there; `os` has other functions, None for one that the platform lacks.
def wallet(content=KEY, mode=0o600, **functions):
    changed = ModuleType("os")
    vars(changed).update({name: value for name, value in (vars(os) | functions).items() if value is not None})
    return given({PATH: content}, mode, os=changed)


def at_path(make):
    return lambda *_: (os.mkdir("data"), make(Path(PATH)))


def status(mode, owner):
    return lambda fd: SimpleNamespace(st_mode=mode, st_uid=owner)


LOOK = f"os.path.exists('{AT}')  os.lstat('{AT}')  _stat.S_ISLNK(0o100644)  _stat.S_ISREG(0o100644)"
# fmt: off
READING = [
    Case("there is no file, and none is made", given({"data/other": ""}), read),
    Case("a key is read without the blanks around it", wallet(f" {KEY}\r\n", 0o644), read, KEY, needs=OWNERS,
         files={PATH: (f" {KEY}\r\n", 0o600)}, calls=f"""_wallet_key_path('data')  {LOOK}  os.getuid()
         os.open('{AT}', O_RDONLY|O_NOFOLLOW)  _check_wallet_fd('{AT}', fd)
         os.fdopen(fd, 'r')  file.read()  file.__exit__()"""),
    Case("nobody can be asked", wallet(getuid=None, O_NOFOLLOW=None, fchmod=None), read, KEY, needs=MODES),
    *(Case(f"a key with mode {mode:o} is private afterwards", wallet(mode=mode), read, KEY,
           files={PATH: (KEY, 0o600)}, needs=MODES) for mode in (0o601, 0o602, 0o604, 0o610, 0o620, 0o640)),
    Case("it cannot be looked at", wallet(lstat=no), read, raises=UNREADABLE, context=OSError(5)),
    Case("it cannot be opened", wallet(open=no), read, raises=UNSAFE, context=OSError(5)),
    Case("a directory was swapped in", wallet(fstat=status(0o40700, 0)), read, raises=UNSAFE),
    Case("another's was there", wallet(KEY, 0o644, fstat=status(0o100644, 12345)), read, raises=UNSAFE, needs=OWNERS),
    Case("it cannot become a file object", wallet(fdopen=no), read, raises=OSError(5)),
    Case("it cannot be made private", wallet(mode=0o644, fchmod=no), read, raises=OSError(5), needs=MODES),
]
WRITING = [
    Case("there is no directory yet", given(), store, files={"data": FOLDER, PATH: (NEW, 0o600)}),
    Case("a longer key that others could read is replaced", wallet(KEY + KEY, 0o644), store, needs=OWNERS,
         files={PATH: (NEW, 0o600)}, calls=f"""_canonical_data_dir('data')  os.makedirs('HERE/data', exist_ok=True)
         _wallet_key_path('HERE/data')  {LOOK}  os.getuid()
         os.open('{AT}', O_WRONLY|O_CREAT|O_TRUNC|O_NOFOLLOW, 0o600)  _check_wallet_fd('{AT}', fd)  os.fchmod(fd, 0o600)
         os.write(fd, b'{NEW}')  os.close(fd)  os.chmod('{AT}', 0o600)"""),
    Case("nobody can be asked about the old one", wallet(getuid=None, O_NOFOLLOW=None), store, files={PATH: NEW}),
    Case("a link that leads nowhere is not followed", at_path(lambda path: path.symlink_to("new")), store,
         raises=UNWRITABLE, context=OSError, needs=LINKS + OWNERS),
    Case("nothing is added", given(), call("_write_wallet_key", "data", " é\n"), files={"data": FOLDER, PATH: " é\n"}),
    Case("the old one cannot be looked at", wallet(lstat=no), store, raises=UNWRITABLE, context=OSError(5)),
    Case("it cannot be opened to write", wallet(open=no), store, raises=UNWRITABLE, context=OSError(5)),
    Case("a directory was there", wallet(fstat=status(0o40700, 0)), store, None, UNWRITABLE, UNSAFE, files={PATH: ""}),
    Case("the disk is full", wallet(write=no), store, raises=UNWRITABLE, context=OSError(5), files={PATH: ""}),
    Case("its name cannot be made private", wallet(chmod=no), store, None, UNWRITABLE, OSError(5), files={PATH: NEW}),
]
ACTS = [("read", read), ("written", store)]
BOTH = [
    *(Case(f"{what} is not {verb}", at_path(make), act, raises=UNSAFE, needs=needs) for what, make, needs in (
        ("a link", lambda path: path.symlink_to("."), LINKS), ("a directory", Path.mkdir, ()),
        ("a FIFO", lambda path: os.mkfifo(path), (needs_fifo,))) for verb, act in ACTS),
    *(Case(f"a file of somebody else is not {verb}", wallet(getuid=lambda: 12345, open=no), act, raises=UNSAFE,
           needs=OWNERS) for verb, act in ACTS),
    *(Case(f"an interruption of {name} passes where it is {verb}", wallet(**{name: raising(KeyboardInterrupt, 1)}), act,
           raises=KeyboardInterrupt(1)) for name in ("lstat", "open") for verb, act in ACTS),
]
# fmt: on
test_key_is_read_only_from_a_file_of_ones_own = checked(READING + BOTH)
test_key_is_written_only_to_a_file_of_ones_own = checked(WRITING)
