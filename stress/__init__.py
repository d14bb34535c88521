"""Long runs over the tests' own rows, in every circumstance that they can meet."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parents[1] / "tests"))

#: Each is a module here: those with a short form that the tests run too, and the others.
RUNS = ["failing", "memory", "leaks", "interpreters", "fuzz"]
ONLY_FULL = ["crowd", "fleet"]
