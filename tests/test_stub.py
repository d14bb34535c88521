"""The public operations as typed callers use them: mypy checks this file strictly, and running it proves the types."""

from pathlib import Path
from typing import assert_type

import pytest
from sablecrest import agent_onboarding as onboarding

from local_service import LocalService


@pytest.mark.usefixtures("module")
def test_operations_take_and_return_what_their_types_say(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(tmp_path)
    with LocalService(invite_codes=["WELCOME"]) as service:
        onboarding.configure(server_url=service.url, data_dir=tmp_path, market_id=7, feature_budget_gb=1.5)
        registration = onboarding.register("WELCOME", tmp_path, "7", settings_path=Path("none"))
        token = onboarding.login(Path("wallet.key").read_text())
    seen = assert_type((registration.address, token.token, token.expires_at), tuple[str, str, float])
    assert [*map(type, seen)] == [str, str, float]
    onboarding.inject_heartbeat(working_dir=tmp_path)
    onboarding.update_nudge("first_signal", found=1)
    with pytest.raises(ValueError, match="expects int"):
        onboarding.configure(market_id="7")  # type: ignore[arg-type]
