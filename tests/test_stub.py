"""The public operations as typed callers use them: mypy checks this file strictly, and running it proves the types."""

from pathlib import Path
from typing import assert_type

import pytest
from sablecrest.agent_onboarding import (
    AuthToken,
    WalletRegistration,
    configure,
    create_runtime_freshness_guard,
    get_agents_md_fragment,
    inject_heartbeat,
    login,
    register,
    update_nudge,
)

from local_service import LocalService

pytestmark = pytest.mark.usefixtures("module")


def test_operations_take_and_return_what_their_types_say(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(tmp_path)
    with LocalService(invite_codes=["WELCOME"]) as service:
        configure(server_url=service.url, data_dir=tmp_path, market_id=7, feature_budget_gb=1.5, named_universes=["a"])
        registration = register(invite_code="WELCOME", market_id=7)
        token = login(Path("wallet.key").read_text())
    assert registration == WalletRegistration(address=assert_type(registration.address, str))
    assert isinstance(registration.address, str)
    assert token == AuthToken(assert_type(token.token, str), assert_type(token.expires_at, float))
    assert (type(token.token), type(token.expires_at)) == (str, float)

    assert isinstance(assert_type(create_runtime_freshness_guard(str(tmp_path)).ensure_fresh(), list[str]), list)
    assert isinstance(assert_type(get_agents_md_fragment(), str), str)
    inject_heartbeat(working_dir=str(tmp_path))
    update_nudge("first_signal", found=1)


def test_what_the_types_forbid_is_refused() -> None:
    with pytest.raises(ValueError, match="expects int"):
        configure(market_id="7")  # type: ignore[arg-type]
    with pytest.raises(ValueError, match="Unknown"):
        configure(colour="red")  # type: ignore[call-arg]
