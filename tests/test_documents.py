"""What the documents show is what happens: their sessions and programs run as they are printed."""

import doctest
import re
import runpy
from pathlib import Path

import pytest
from support import ROOT
from support.platforms import HAS_MODES

TEXTS = {page: page.read_text("utf-8") for page in [ROOT / "README.md", *sorted(ROOT.glob("docs/*.md"))]}
SESSIONS = {page.name: "".join(re.findall("(?ms)^```python\n(>>>.*?)^```", text)) for page, text in TEXTS.items()}


# In a folder where what the documents call build/ is not in the way of anything.
@pytest.fixture(autouse=True)
def clone(module, tmp_path, monkeypatch):
    (tmp_path / "build").mkdir()
    monkeypatch.chdir(tmp_path)


@pytest.mark.parametrize("page", [page for page, session in SESSIONS.items() if session])
def test_session_runs_as_printed(page):
    session = SESSIONS[page] if HAS_MODES else SESSIONS[page].replace("0o100600", "0o100666")
    runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS)
    runner.run(doctest.DocTestParser().get_doctest(session, {}, page, page, 0))
    assert runner.summarize().failed == 0


def test_road_runs_as_printed(capsys):
    [program] = re.findall("(?ms)save this as `build/road.py`:\n\n```python\n(.*?)^```", "".join(TEXTS.values()))
    Path("build/road.py").write_text(program, encoding="utf-8")
    runpy.run_path("build/road.py")
    assert re.match(r"WalletRegistration\(.*\n.*momentum\(close\).*\n.*momentum\(close\)", capsys.readouterr().out)
