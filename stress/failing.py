"""Lets every call of every operation fail, and swaps the key file's path between every two of its steps."""

import os
import re
import sys
from collections import Counter
from contextlib import suppress
from functools import partial
from itertools import islice, product
from pathlib import Path

from support.recorder import Recorder

from stress.operations import CODE, OPERATIONS, TOKEN, arguments, chain, differences, native, observe, told

PATH, THEIRS, OPEN = "data/wallet.key", "of somebody else", os.open
WRITTEN_KEYS = re.compile("(cd|ef){32}")
SECRETS = re.compile(f"(ab|cd|ef){{32}}|{TOKEN}|{CODE}|CODE|{THEIRS}")
#: After the last of these, files must be complete.
WRITES = re.compile(r"os\.(write|chmod|link)|file\.write|shutil|.*write_rotation|.*(exec|import)_module")
#: What the prescribed steps leave behind themselves: the operation, the call and the fault, and why that is no finding.
EXCEPTIONS = {
    r"(wallet.key|HEARTBEAT.md) is \(''": "a key or checklist whose write fails after the file was opened may be empty",
    r"authenticate\(\): data/wallet.key is \('(cd){32}', 384\)": "the key of an accepted wallet is kept",
    r"KeyboardInterrupt .* sys.modules has other \['m'\]": "a load that is interrupted leaves its module registered",
    r"aliases: stopped at .* importlib.import_module": "what cannot be imported gets a stand-in",
    r"nobody can be asked .* a (link|foreign file) at": "where nobody can ask, links and others' files are as good",
    r"somebody else is \[\('of somebody else', 384\)\]": "the last step of writing goes by the file's name",
    r"somebody else is \[\]": "a file is emptied as it is opened, before its owner is asked",
    r"OSError at \d+, os.link": "where there are no hard links, the module is copied",
    r"^import: undisturbed|argument.*: undisturbed": "the layer has other texts and another name",
}


class Failure:
    """Happens before a call, and knows what was being handled then."""

    held, is_theirs = None, False

    def __init__(self, make):
        self.make = make

    def __call__(self):
        self.error, self.handled = self.make("injected"), sys.exception()
        return self.error


class Swap(Failure):
    """Something else comes to lie at the key file's path, which is moved away; `is_theirs` if it is somebody else's."""

    def __call__(self):
        if not Path("data").is_file():
            with suppress(OSError):
                os.rename(PATH, "data/moved")
            os.makedirs("data", exist_ok=True)
            self.held, self.is_theirs = self.make(), self.make in (put_link, put_foreign_file)


def put_theirs(path):
    with open(path, "w", opener=partial(OPEN, mode=0o640)) as file:
        file.write(THEIRS)


def put_link():
    put_theirs("theirs")
    os.symlink("../theirs", PATH)


def put_foreign_file():
    put_theirs(PATH)
    os.chown(PATH, 54321, -1)


def put_fifo():
    os.mkfifo(PATH)
    return OPEN(PATH, os.O_RDWR)  # or whoever opens it would wait for the other end


FAILURES = {"OSError": partial(OSError, 5), "Exception": Exception, "KeyboardInterrupt": KeyboardInterrupt}
SWAPS = {"a directory": partial(os.mkdir, PATH)}
if os.name == "posix":
    SWAPS |= {"a link": put_link, "a FIFO": put_fifo, "a foreign file": put_foreign_file}
    if os.getuid() != 0:
        print("No key file is swapped for a file of somebody else, which only root could make.")
        del SWAPS["a foreign file"]


def faults(row, clean, seen, n, cause):
    """What must not be, whatever happens before call n."""
    files, whole = seen.changes["files"], clean.changes["files"]
    if SECRETS.search(repr(told(seen))) or THEIRS in repr(seen.returned):
        yield "a secret is told"
    if len(seen.left_open - {cause.held}) > row.left_open:
        yield "a descriptor stays open"
    for path, content in files.items():
        if isinstance(content, tuple) and WRITTEN_KEYS.search(str(content[0])) and content[1] & 0o077:
            yield f"{path}, which others can read, is {content}"
    if cause.is_theirs and (THEIRS, 0o640) not in files.values():
        yield f"the file of somebody else is {[content for content in files.values() if content[0] == THEIRS]}"
    if isinstance(cause, Swap):
        return
    error, links = cause.error, chain(seen.error)
    if isinstance(error, KeyboardInterrupt) and seen.error is not error:
        yield "an interruption does not pass"
    if error in links and (error.__context__ is not cause.handled or error.__cause__):
        yield "the failure has another context or cause than where it happened"
    logged = [argument for record in seen.records for argument in record.args]
    if error not in links + logged and seen.error and repr(seen.error) != repr(clean.error):
        yield "the failure is not the context of what it led to"
    is_accepted = row.name == "register" and "authenticate" in clean.calls[n] and isinstance(error, Exception)
    if is_accepted and PATH not in files:
        yield "the key of an accepted wallet is lost"
    last = max((i for i, call in enumerate(clean.calls) if WRITES.match(call)), default=n)
    for path in files.keys() | whole.keys():
        if files.get(path) != whole.get(path) and (n > last or path in files):
            yield f"{path} is {files.get(path)}"
    expected = clean.changes["modules"] if OPERATIONS.get(row.name) is row else row.modules  # by the table
    if other := seen.changes["modules"].keys() - set(expected):
        yield f"sys.modules has other {sorted(other)}"


def attempts(name, row):
    """What is tried, and a function that returns what is found."""
    clean = observe(row, native, Recorder(deep=True))
    yield f"{name}: undisturbed", lambda: differences(clean, row)

    def find(n, kind, make):
        cause = kind(make)
        seen = observe(row, native, Recorder({n: cause}, deep=True))
        return [*faults(row, clean, seen, n, cause), *differences(seen, row, {n: kind(make)})]

    kinds = [(what, Failure, make) for what, make in FAILURES.items()]
    kinds += [(what, Swap, make) for what, make in SWAPS.items() if name.startswith("key_file")]
    for (n, call), (what, kind, make) in product(enumerate(clean.calls), kinds):
        if not call.endswith("__enter__()"):  # of a file that is open, which does nothing
            yield f"{name}: {what} at {n}, {call}", partial(find, n, kind, make)


def main():
    option, names = arguments()
    total, excused = Counter(attempts=0, findings=0), Counter()
    os.umask(0)
    tried = (each for name in names for each in attempts(name, OPERATIONS[name]))
    for what, find in islice(tried, 0, None, 16 if option == "--short" else 1):
        found = [f"{what}: {fault}" for fault in find()]
        for line in found:
            reasons = [reason for pattern, reason in EXCEPTIONS.items() if re.search(pattern, line)]
            excused.update(reasons[:1])
            if not reasons:
                total.update(findings=1)
                print(line, flush=True)
        total.update(attempts=1)
    print(*(f"{excused[reason]} times {reason}" for reason in EXCEPTIONS.values()), sep="\n")
    print(f"{len(names)} operations", dict(total))
    sys.exit(total["findings"] > 0)


if __name__ == "__main__":
    main()
