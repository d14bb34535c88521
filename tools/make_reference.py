"""Writes docs/reference.md from the type stub; with --check fails where that would change it.

Fails as well where the stub has no docstring, or has not the module's names in the module's order.
"""

import re
import sys
from itertools import zip_longest
from pathlib import Path

from sablecrest import agent_onboarding

ROOT = Path(__file__).parents[1]
STUB = ROOT / "agent_onboarding/agent_onboarding.pyi"
REFERENCE = ROOT / "docs/reference.md"

INTRODUCTION = """\
# Reference

The types and docstrings of everything that `sablecrest.agent_onboarding` defines, in the order in which importing it
binds the names, the public operations first. The [tour](tour.md) shows them at work; [options](options.md) and
[errors](errors.md) have pages of their own.

What is said to be raised comes from the function itself. Errors of the file system, of values of another type and of
the package's other modules pass through, unless it says otherwise.

`make reference` writes this page from the type stub; `make test` fails where it differs from that.
"""


def require_same_names(stub: str) -> None:
    """From its first own name on, the module binds what the stub defines, but for the types that only the stub has."""
    in_module = re.sub(r"^@type_check_only\n.*", "", stub, flags=re.MULTILINE)
    names = re.findall(r"^(?:class |def )?(\w+)(?=[(:])", in_module, re.MULTILINE)
    bound = [*vars(agent_onboarding)]
    for there, here in zip_longest(bound[bound.index(names[0]) :], names):
        if there != here:
            sys.exit(f"The module binds {there} where the stub has {here}.")


def require_docstring(name: str, definition: str) -> None:
    """It begins with the same line as that of the module, where that has one too."""
    first_line = re.search(r'^    """(.+?)(?:"""|$)', definition, re.MULTILINE)
    in_module = hasattr(agent_onboarding, name) and getattr(agent_onboarding, name).__doc__
    if not first_line or (in_module and in_module.partition("\n")[0] != first_line[1]):
        sys.exit(f"The docstring of {name} is missing, or does not begin as the module's does.")


def block(heading: str, code: str) -> str:
    return f"\n### {heading}\n\n```python\n{code}\n```\n"


def reference(stub: str) -> str:
    operations = others = ""
    _, *sections = re.split(r"\n\n# (.+)\n\n", stub)
    for heading, section in zip(sections[::2], sections[1::2]):
        private = []
        for definition in re.split(r"\n\n(?=\S)", section.rstrip()):
            if named := re.search(r"^(?:class|def) (\w+)", definition, re.MULTILINE):
                require_docstring(named[1], definition)
            if named and not named[1].startswith("_"):
                operations += block(named[1], definition)
            else:
                private.append(definition)
        if private:
            others += block(heading, "\n\n".join(private))
    return f"{INTRODUCTION}\n## Public operations\n{operations}\n## Everything else\n{others}"


if __name__ == "__main__":
    stub = STUB.read_text(encoding="utf-8")
    require_same_names(stub)
    page = reference(stub)
    if "--check" not in sys.argv:
        REFERENCE.write_text(page, encoding="utf-8")
    elif page != REFERENCE.read_text(encoding="utf-8"):
        sys.exit("docs/reference.md is not what the stub says: run `make reference`.")
