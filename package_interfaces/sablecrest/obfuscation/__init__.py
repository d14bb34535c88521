"""Vocabularies of named universes. Older runtime modules import this package as `src.obfuscation`."""

import json
import os


def load_vocabulary(path: str | os.PathLike) -> dict:
    """The vocabulary of the universe whose folder holds `path`.

    A dict of "named_universe" (the folder's name), "features" and "functions" (lists of names). Raises ValueError when
    the file does not hold a JSON object with these two lists, OSError when it cannot be read.
    """
    with open(path, "rb") as file:
        content = json.load(file)
    vocabulary: dict = {"named_universe": os.path.basename(os.path.dirname(os.path.abspath(path)))}
    for key in ("features", "functions"):
        names = content.get(key) if isinstance(content, dict) else None
        if not isinstance(names, list) or not all(isinstance(name, str) for name in names):
            raise ValueError(f"Vocabulary {path} must list its {key} by name.")
        vocabulary[key] = names
    return vocabulary
