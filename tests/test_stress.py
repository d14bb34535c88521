"""The stress runs in their short form, `make stress` has the whole; and whether they reach every function."""

import subprocess
import sys
from contextlib import suppress
from inspect import isroutine
from unittest.mock import Mock

import pytest
from support.cases import all_rows, staged
from support.platforms import needs_fork, needs_modes
from support.subject import NAME

from stress import RUNS


@needs_modes  # of the key files that "failing" looks at
@needs_fork
@pytest.mark.parametrize("run", RUNS)
def test_stress_run_finds_nothing(run):
    subprocess.run([sys.executable, "-m", "stress", run, "--short"], check=True)


@needs_modes  # as other platforms have fewer rows
def test_every_function_is_called_in_some_row(module, tmp_path_factory):
    spies = {name: Mock(wraps=f) for name, f in vars(module).items() if isroutine(f) and f.__module__ == NAME}
    vars(module).update(spies)
    for _, row in all_rows():
        with staged(row, module, tmp_path_factory.mktemp("row")), suppress(BaseException):
            row.call(module)
    assert [name for name, spy in spies.items() if not spy.called] == []
