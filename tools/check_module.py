"""Fails where a built module exports, needs or weighs more than it should: check_module.py FILE…"""

import re
import sys
import sysconfig
from dataclasses import dataclass
from pathlib import Path

import lief

LARGEST = 400 * 1024
SYSTEM_LIBRARIES = re.compile(r"libc\.so\.6|ld-linux-.*\.so\.\d|KERNEL32\.dll|msvcrt\.dll|api-ms-win-crt-.*\.dll")
WINDOWS_NAME = "agent_onboarding.cp313-win_amd64.pyd"

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
    headers = [
        header.read_text(encoding="utf-8")
        for folder in ("", "cpython")
        for header in include.joinpath(folder).glob("*.h")
    ]
    declared = re.findall(r"\bPyAPI_(?:FUNC|DATA)\(.*?\)\s*(\w+)", "\n".join(headers))
    return {name for name in declared if not name.startswith("_")}


@dataclass
class Interface:
    """What a module's file says of its surroundings."""

    expected_name: str
    exported: set[str]
    from_interpreter: set[str]
    libraries: set[str]


def windows_interface(module: lief.PE.Binary) -> Interface:
    imported = {library.name: {entry.name for entry in library.entries} for library in module.imports}
    exported = {function.name for function in module.exported_functions}
    return Interface(WINDOWS_NAME, exported, imported.pop("python313.dll", set()), {*imported})


def linux_interface(module: lief.ELF.Binary) -> Interface:
    name = "agent_onboarding" + sysconfig.get_config_var("EXT_SUFFIX")
    exported = {symbol.name for symbol in module.exported_symbols}
    wanted = {symbol.name for symbol in module.dynamic_symbols if symbol.shndx == 0}
    return Interface(name, exported, {name for name in wanted if re.match("_?Py", name)}, {*module.libraries})


def faults(path: Path) -> list[str]:
    module = lief.parse(path)
    is_for_windows = isinstance(module, lief.PE.Binary) and module.optional_header.magic == lief.PE.PE_TYPE.PE32_PLUS
    interface = windows_interface(module) if is_for_windows else linux_interface(module)
    private = interface.from_interpreter - public_names() - BEHIND_DOCUMENTED_NAMES.keys()
    foreign = {library for library in interface.libraries if not SYSTEM_LIBRARIES.fullmatch(library)}
    found = {
        f"should be {interface.expected_name}": path.name != interface.expected_name,
        f"exports {interface.exported}": interface.exported != {"PyInit_agent_onboarding"},
        f"takes what is not public from the interpreter: {private}": private,
        "takes nothing from the interpreter": not interface.from_interpreter,
        f"needs {foreign}": foreign,
        f"has {path.stat().st_size} bytes": path.stat().st_size >= LARGEST,
    }
    return [fault for fault, is_found in found.items() if is_found]


if __name__ == "__main__":
    sys.exit("\n".join(f"{path} {fault}." for path in map(Path, sys.argv[1:]) for fault in faults(path)) or None)
