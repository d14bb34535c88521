"""The skills that the package brings along for an agent."""

import os

_BUNDLE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "skill_bundle")


def list_skills() -> list[str]:
    """Absolute paths of the bundled SKILL.md files, sorted."""
    paths = (os.path.join(_BUNDLE, name, "SKILL.md") for name in sorted(os.listdir(_BUNDLE)))
    return [path for path in paths if os.path.isfile(path)]
