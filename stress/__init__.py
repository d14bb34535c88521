"""Long runs over the tests' own operations, in every circumstance that they can meet."""

import sys
from pathlib import Path

TESTS = Path(__file__).parents[1] / "tests"
sys.path[:0] = [str(TESTS), str(TESTS / "runtime")]
