"""The stress runs in their short form; `make stress` has the whole."""

import subprocess
import sys

import pytest
from support.platforms import needs_fork, needs_modes

from stress import RUNS


@needs_modes  # of the key files that "failing" looks at
@needs_fork
@pytest.mark.parametrize("run", RUNS)
def test_stress_run_finds_nothing(run):
    subprocess.run([sys.executable, "-m", f"stress.{run}", "--short"], check=True)
