"""The stress runs in their short form; `make stress` has the whole."""

import subprocess
import sys

import pytest


@pytest.mark.parametrize("run", ["memory", "leaks", "interpreters", "fuzz"])
def test_stress_run_finds_nothing(run):
    subprocess.run([sys.executable, "-m", f"stress.{run}", "--short"], check=True)
