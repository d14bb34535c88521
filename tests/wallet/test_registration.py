"""Registration and login: every outcome, with a scripted client and with a real service."""

import re
import secrets
import traceback
from pathlib import Path

import pytest
from differential import Scenario, agree, write
from sablecrest import auth

from local_service import LocalService

KEY, NEW_KEY, TOKEN = "ab" * 32, "cd" * 32, "secret-token"


class Manager:
    """A client that answers, or fails as it is told."""

    get_token, get_token_expiry, get_wallet_address = (lambda _: TOKEN), (lambda _: 1.5), (lambda _: "0xaddress")

    def __init__(self, error, **attributes):
        vars(self).update(attributes, error=error)

    def authenticate(self):
        if self.error:
            raise self.error("no")


def scenario(name, call, error=None, wallet=None, attributes=(("_registration_acknowledged", True),), **options):
    def prepare(module, patch):
        patch.setattr(auth, "AuthManager", lambda *args, **kwargs: Manager(error, **dict(attributes)))
        patch.setattr(secrets, "token_hex", lambda count: NEW_KEY[: 2 * count])
        vars(module).update(_resolve_active_named_universe=lambda am: None, _propagate_auth=lambda am, strict: None)
        module._config.update({"data_dir": "data", "auto_heartbeat": False} | options)
        if wallet:
            write("data/wallet.key", wallet)

    return Scenario(name, prepare, call)


REGISTER, RUN = (lambda m: m.register("code")), (lambda m: m.register("code", bootstrap_runtime=True))
ERRORS = (ConnectionError, auth.RegistrationError, auth.InvalidKeyError, auth.AuthError, OSError, KeyboardInterrupt)
SCENARIOS = [
    scenario("new", lambda m: m.register("code", settings_path="s.yaml"), auto_heartbeat=True),
    scenario("known", lambda m: m.register(), wallet=KEY + "\n", invite_code="unused"),
    scenario("no switch", lambda m: (m._config.pop("auto_heartbeat"), m.register()), wallet=KEY),
    scenario("options", lambda m: m.register(None, Path("other"), "7"), invite_code=" c "),
    scenario("no code", lambda m: m.register()),
    scenario("market is no number", lambda m: m.register(market_id="x")),
    scenario("runtime, market given", lambda m: m.register("code", None, 7, True)),
    *(scenario(f"runtime, market {market}", RUN, market_id=market) for market in (None, "1", "abc", 0, 1e999)),
    *(scenario(f"new, {error.__name__}", REGISTER, error) for error in ERRORS),
    scenario("new, not acknowledged", REGISTER, OSError, attributes=()),
    scenario("known, refused", REGISTER, OSError, wallet=KEY),
    scenario("login", lambda m: m.login("0X" + KEY, settings_path=Path("s.yaml")), wallet="longer" + KEY),
    scenario("login with None", lambda m: m.login(None)),
    scenario("login with bytes", lambda m: m.login(b"ab")),
    scenario("login, runtime", lambda m: m.login(KEY, True)),
    *(scenario(f"login, {error.__name__}", lambda m: m.login(KEY), error) for error in ERRORS),
]


def test_registration_goes_as_in_plain_python_and_tells_no_secret(scenario, directory):
    for trace in agree(scenario, directory):
        told = [call for call in trace.calls if call[0].startswith("logger.")]
        told += trace.outcome if trace.outcome[0] == "raised" else []
        assert not [secret for secret in (KEY, NEW_KEY, TOKEN) if secret in repr(told)]


def test_wallet_lives_through_every_answer_of_a_real_service(module, tmp_path, monkeypatch, caplog):
    def refuse(error_type, message, call, *arguments):
        with pytest.raises(error_type, match=f"^{re.escape(message)}$") as caught:
            call(*arguments)
        told.extend(traceback.format_exception(caught.value))

    told, wallet = [], tmp_path / "data/wallet.key"
    with LocalService(["first", "second"]) as service:
        module.configure(server_url=service.url, data_dir=wallet.parent)
        refusal = "Registration failed: HTTP 403 unknown or used invite code. Contact support if this persists."
        refuse(auth.RegistrationError, refusal, module.register, "third")
        assert not wallet.exists()

        registration = module.register("first")
        key, changed = wallet.read_text(), wallet.stat().st_ctime_ns
        assert re.fullmatch("[0-9a-f]{64}", key)
        assert list(service.wallets) == [registration.address]
        assert module.register() == registration
        assert wallet.stat().st_ctime_ns == changed
        token = module.login("0x" + key)
        assert token.token == auth._active_auth_manager.get_token()

        refuse(auth.AuthError, "Authentication failed. Verify your private key is correct.", module.login, KEY)
        assert wallet.read_text() == KEY
        wallet.unlink()
        service.faults["/challenge"] = "server-error"
        refuse(auth.AuthError, "The service answered HTTP 500.", module.register, "second")
        kept = wallet.read_text()
        service.faults.clear()
        monkeypatch.delattr(auth, "_set_active_auth_manager")
        assert module.register().address == list(service.wallets)[1]
    refusal = "Cannot reach SableCrest server. Check your network connection and try again."
    refuse(ConnectionError, refusal, module.register)
    assert [record.msg for record in caplog.records] == ["Failed to set active auth manager: %s"]
    told += [caplog.text, repr(token), repr(module._auth_manager)]
    assert not [secret for secret in (key, KEY, kept, token.token) if secret in "".join(told)]
