"""Fails where a built module exports, needs or weighs more than it should: check_module.py FILE"""

import re
import sys
import sysconfig
from pathlib import Path

import lief

LARGEST = {".pyd": 400 * 1024, ".so": 450 * 1024}  # compilers of Linux are many, and differ by a fifth
SYSTEM_LIBRARIES = re.compile(
    r"libc\.so\.6|ld-linux-.*\.so\.\d|python313\.dll|KERNEL32\.dll|api-ms-win-crt-.*\.dll", re.IGNORECASE
)

# The names with an underscore that the module may take from the interpreter, and what of the documented interface the
# headers turn into them.
BEHIND_DOCUMENTED_NAMES = {
    "_PyUnicode_IsWhitespace": "Py_UNICODE_ISSPACE",
    "_Py_Dealloc": "Py_DECREF",
    "_Py_FalseStruct": "Py_False",
    "_Py_NoneStruct": "Py_None",
    "_Py_TrueStruct": "Py_True",
    "_Py_ascii_whitespace": "Py_UNICODE_ISSPACE",
}


def public_names() -> set[str]:
    """What the interpreter's headers declare outside of those for its own use."""
    include = Path(sysconfig.get_path("include"))
    headers = "\n".join(path.read_text("utf-8") for path in [*include.glob("*.h"), *include.glob("cpython/*.h")])
    return {name for name in re.findall(r"\bPyAPI_(?:FUNC|DATA)\(.*?\)\s*(\w+)", headers) if name[0] != "_"}


def faults(path: Path) -> list[str]:
    module = lief.parse(path)
    imported, exported = module.imported_functions, module.exported_functions
    if isinstance(module, lief.ELF.Binary):
        imported, exported = (each for each in module.dynamic_symbols if not each.shndx), module.exported_symbols
    exported = {each.name for each in exported}
    from_interpreter = {each.name for each in imported if re.match("_?Py", each.name)}
    private = from_interpreter - public_names() - BEHIND_DOCUMENTED_NAMES.keys()
    foreign = {library for library in module.libraries if not SYSTEM_LIBRARIES.fullmatch(library)}
    found = {
        f"exports {exported}": exported != {"PyInit_agent_onboarding"},
        f"takes what is not public from the interpreter: {private}": private,
        "takes nothing from the interpreter": not from_interpreter,
        f"needs {foreign}": foreign,
        f"has {path.stat().st_size} bytes": path.stat().st_size >= LARGEST[path.suffix],
    }
    return [f"{path} {fault}." for fault, is_found in found.items() if is_found]


if __name__ == "__main__":
    sys.exit("\n".join(faults(Path(sys.argv[1]))) or None)
