"""Writes docs/reference.md from the type stub and the docstrings; with --check fails where that would change it.

Fails as well where the module and the stub do not have the same names, or not in the same order.
"""

import ast
import inspect
import sys
import textwrap
from collections.abc import Iterator
from pathlib import Path

from sablecrest import agent_onboarding

ROOT = Path(__file__).parents[1]
STUB = ROOT / "agent_onboarding/agent_onboarding.pyi"
REFERENCE = ROOT / "docs/reference.md"

INTRODUCTION = """\
# Reference

The types and docstrings of everything that `sablecrest.agent_onboarding` defines, in the order in which importing it
binds the names, the public operations first. The [README](../README.md) shows them at work, lists the options, and says
for each error what to do about it.

`make reference` writes this page from the type stub and the module; `make test` fails where it differs from them.
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
    bound = [name for name in vars(agent_onboarding) if not name.startswith("__")]
    defined = [name for name in map(own_name, body) if name]
    imported = [alias.asname for node in body if isinstance(node, ast.Import | ast.ImportFrom) for alias in node.names]
    if different := {*bound} ^ {*defined, *filter(None, imported)}:
        sys.exit(f"The module and its stub do not both have {', '.join(sorted(different))}.")
    for there, here in zip(filter(defined.__contains__, bound), defined):
        if there != here:
            sys.exit(f"The module binds {there} where the stub has {here}.")


def with_docstring(node: ast.stmt, definition: str) -> str:
    name = own_name(node)
    docstring = name and not isinstance(node, ast.AnnAssign) and getattr(agent_onboarding, name).__doc__
    if not docstring:
        return definition
    quoted = f'"""{inspect.cleandoc(docstring)}' + ('\n"""' if "\n" in docstring else '"""')
    head, rest = definition.removesuffix(" ..."), ""
    if isinstance(node, ast.ClassDef):
        head, _, rest = definition.partition("\n")
    return f"{head}\n{textwrap.indent(quoted, '    ')}\n{rest}".rstrip()


def definitions(stub: str) -> Iterator[tuple[str, str | None, str]]:
    """For each: the heading above it or "", its name in the module, its text with comment and docstring."""
    lines, body = stub.splitlines(), ast.parse(stub).body
    require_same_names(body)
    end: int | None = 0
    for node in body:
        before = "\n".join([*lines[end : node.lineno - 1], ""])
        end = node.end_lineno
        if not isinstance(node, ast.Import | ast.ImportFrom):
            heading, _, comment = before.rpartition("\n\n")
            definition = with_docstring(node, "\n".join(lines[node.lineno - 1 : end]))
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
        sys.exit("docs/reference.md is not what the stub and the docstrings say: run `make reference`.")
