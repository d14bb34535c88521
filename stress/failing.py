"""Lets every call of every operation fail, and swaps the key file's path between every two of its steps."""

import faulthandler
import os
import re
from collections import Counter
from contextlib import suppress
from functools import partial
from itertools import islice, product
from pathlib import Path

from support.recorder import Recorder

from stress.child import STUCK
from stress.operations import OPERATIONS, SHORT, chain, differences, native, observe, told

PATH, THEIRS = "data/wallet.key", ("of somebody else", 0o666)
SECRETS = re.compile(rf"(ab|cd){{32}}|CODE|secret|(?<!auth )\btoken\b|{THEIRS[0]}")
#: After the last of these, files must be complete.
WRITES = re.compile(r"os\.(write|chmod|link)|file\.write|shutil|.*write_rotation|.*(exec|import)_module")
#: What the prescribed steps leave behind themselves: the operation, the call and the fault, and why that is no finding.
EXCEPTIONS = {
    r"(wallet.key|HEARTBEAT.md) is \(''": "a key or checklist whose write fails after the file was opened may be empty",
    r"authenticate\(\): data/wallet.key is \('(cd){32}', 384\)": "the key of an accepted wallet is kept",
    r"KeyboardInterrupt .* sys.modules has other \['m'\]": "a load that is interrupted leaves its module registered",
    r"aliases: stopped at .* importlib.import_module": "what cannot be imported gets a stand-in",
    r"nobody can be asked .* (a link|another's) at": "links and others' files are as good there",
    r"somebody else is \[\('of somebody else', 384\)\]": "the last step of writing goes by the file's name",
    r"no exception class .* interruption does not pass": "Python itself refuses to catch by what is no class",
    r"somebody else is \[\]": "a file is emptied as it is opened, before its owner is asked",
    r"OSError at \d+, os.link": "where there are no hard links, the module is copied",
}


def swap(what):
    """This comes to lie at the key file's path, which is moved away."""
    os.makedirs("data", exist_ok=True)
    with suppress(FileNotFoundError):
        os.rename(PATH, "data/moved")
    if what == "a directory":
        os.mkdir(PATH)
    elif what == "a FIFO":
        os.mkfifo(PATH)
        os.open(PATH, os.O_RDWR)  # or whoever opens it would wait for the other end
    else:
        if what == "a link":
            os.symlink("../theirs", PATH)
        Path(PATH).write_text(THEIRS[0])
        if what == "another's":
            os.chown(PATH, 54321, -1)


FAILURES = {"OSError": partial(OSError, 5), "Exception": Exception, "KeyboardInterrupt": KeyboardInterrupt}
SWAPS = ["a directory", "a FIFO", "a link", "another's"]
if os.getuid() != 0:
    print("No key file is swapped for a file of somebody else, which only root could make.", SWAPS.pop())


def faults(row, clean, n, what):
    """What must not be, whatever happens before call n."""
    make = FAILURES.get(what, lambda _: None)
    error, in_plain = make("injected"), make("injected")
    seen = observe(row, native, Recorder({n: lambda: error or swap(what)}, deep=True))
    yield from differences(seen, row, {n: lambda: in_plain or swap(what)})
    files, whole = seen.changes["files"], clean.changes["files"]
    if SECRETS.search(repr(told(seen))) or THEIRS[0] in repr(seen.returned):
        yield "a secret is told"
    if len(seen.left_open) > (what == "a FIFO"):
        yield "a descriptor stays open"
    for path, content in files.items():
        if isinstance(content, tuple) and "cd" * 32 in str(content[0]) and content[1] & 0o077:
            yield f"{path}, which others can read, is {content}"
    if what in ("a link", "another's") and THEIRS not in files.values():
        yield f"the file of somebody else is {[content for content in files.values() if content[0] == THEIRS[0]]}"
    if what in SWAPS:
        return
    if isinstance(error, KeyboardInterrupt) and seen.error is not error:
        yield "an interruption does not pass"
    logged = [argument for record in seen.records for argument in record.args]
    if error not in chain(seen.error) + logged and seen.error and repr(seen.error) != repr(clean.error):
        yield "the failure is not the context of what it led to"
    is_accepted = row.name.endswith("the key is kept") and "authenticate" in clean.calls[n]
    if is_accepted and isinstance(error, Exception) and PATH not in files:
        yield "the key of an accepted wallet is lost"
    last = max((i for i, call in enumerate(clean.calls) if WRITES.match(call)), default=n)
    for path in files.keys() | whole.keys():
        if files.get(path) != whole.get(path) and (n > last or path in files):
            yield f"{path} is {files.get(path)}"
    if other := seen.changes["modules"].keys() - clean.changes["modules"]:
        yield f"sys.modules has other {sorted(other)}"


def attempts():
    """What happens, and to which row, with what comes of that where nothing happens."""
    for name, row in OPERATIONS.items():
        clean = observe(row, native, Recorder(deep=True))
        steps = [*FAILURES, *(SWAPS if name.startswith("key_file") else ())]
        for (n, call), what in product(enumerate(clean.calls), steps):
            if not call.endswith("__enter__()"):  # of a file that is open, which does nothing
                yield f"{name}: {what} at {n}, {call}", row, clean, n, what


def main():
    total = Counter(attempts=0, findings=0)
    os.umask(0)
    for what, *attempt in islice(attempts(), 0, None, 16 if SHORT else 1):
        faulthandler.dump_traceback_later(STUCK, exit=True)
        for line in [f"{what}: {fault}" for fault in faults(*attempt)]:
            reason = next((reason for pattern, reason in EXCEPTIONS.items() if re.search(pattern, line)), "findings")
            total[reason] += 1
            if reason == "findings":
                print(line, flush=True)
        total["attempts"] += 1
    print(f"{len(OPERATIONS)} operations", *(f"{count} {what}" for what, count in total.items()), sep="\n    ")
    return total["findings"]
