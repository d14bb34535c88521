"""Writes docs/reference.md from the type stub; with --check fails where that would change it.

Fails as well where the stub has no docstring, or has not the module's names in the module's order.
"""

import ast
import inspect
import sys
from collections.abc import Iterator
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


def own_name(node: ast.stmt) -> str | None:
    """What the module binds where the stub has this statement; None for imports and for what only the stub has."""
    match node:
        case ast.ClassDef(decorator_list=[ast.Name("type_check_only")]):
            return None
        case ast.AnnAssign(target=ast.Name(name)) | ast.FunctionDef(name=name) | ast.ClassDef(name=name):
            return name
    return None


def require_same_names(body: list[ast.stmt]) -> None:
    imported = {alias.asname for node in body if isinstance(node, ast.Import | ast.ImportFrom) for alias in node.names}
    bound = [name for name in vars(agent_onboarding) if not name.startswith("__") and name not in imported]
    for there, here in zip_longest(bound, filter(None, map(own_name, body))):
        if there != here:
            sys.exit(f"The module binds {there} where the stub has {here}.")


def require_docstrings(body: list[ast.stmt]) -> None:
    """Each function and class has one; where the module has one too, it begins with the same line."""
    for node in body:
        if isinstance(node, ast.FunctionDef | ast.ClassDef):
            docstring = ast.get_docstring(node) or ""
            in_module = inspect.getdoc(getattr(agent_onboarding, node.name)) if own_name(node) else docstring
            if not docstring or docstring.partition("\n")[0] != (in_module or docstring).partition("\n")[0]:
                sys.exit(f"The docstring of {node.name} is missing, or does not begin as the module's does.")


def definitions(stub: str) -> Iterator[tuple[str, str | None, str]]:
    """For each: the heading above it or "", its name in the module, its text with the comment above it."""
    lines, body = stub.splitlines(), ast.parse(stub).body
    require_same_names(body)
    require_docstrings(body)
    end: int | None = 0
    for node in body:
        before = "\n".join([*lines[end : node.lineno - 1], ""])
        end = node.end_lineno
        if not isinstance(node, ast.Import | ast.ImportFrom):
            heading, _, comment = before.rpartition("\n\n")
            definition = "\n".join(lines[node.lineno - 1 : end])
            yield heading.strip("# \n"), own_name(node), comment.lstrip("\n") + definition


def chapter(title: str, sections: dict[str, list[str]]) -> str:
    blocks = (f"### {heading}\n\n```python\n{'\n\n'.join(texts)}\n```\n" for heading, texts in sections.items())
    return "\n".join([f"## {title}\n", *blocks])


def reference(stub: str) -> str:
    operations: dict[str, list[str]] = {}
    others: dict[str, list[str]] = {}
    section = ""
    for heading, name, text in definitions(stub):
        section = heading or section
        if name and not name.startswith("_") and callable(getattr(agent_onboarding, name)):
            operations[name] = [text]
        else:
            others.setdefault(section, []).append(text)
    return "\n".join([INTRODUCTION, chapter("Public operations", operations), chapter("Everything else", others)])


if __name__ == "__main__":
    page = reference(STUB.read_text(encoding="utf-8"))
    if "--check" not in sys.argv:
        REFERENCE.write_text(page, encoding="utf-8")
    elif page != REFERENCE.read_text(encoding="utf-8"):
        sys.exit("docs/reference.md is not what the stub says: run `make reference`.")
