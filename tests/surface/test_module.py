"""What importing the module gives: its names, functions and records, its refusals, and how often it can be had."""

import dataclasses
import inspect
import os
import pickle
import re
import subprocess
import sys

import pytest
from differential import own_functions, plain


def describe(function):
    signature = re.sub(r"\*\*\w+", "**", str(inspect.signature(function)))
    first_line = function.__doc__ and function.__doc__.partition("\n")[0]
    return function.__name__, function.__qualname__, function.__module__, signature, first_line


def test_names_are_bound_in_order_as_in_plain_python(module):
    def bound(m):
        values = vars(m) | {name: describe(function) for name, function in own_functions(m).items()}
        own_classes = [value for value in values.values() if getattr(value, "__module__", None) == m.__name__]
        values |= {value.__name__: value.__doc__ for value in own_classes}
        return [(name, value) for name, value in values.items() if not name.startswith("__")]

    assert bound(module) == bound(plain)
    assert module.__doc__ == plain.__doc__


def read_when_gone(m):
    m.os = type("os", (), {"path": os.path, "lstat": lambda path: os.stat("missing")})
    m._read_wallet_key("linked")


def write_dangling(m):
    m._write_wallet_key("dangling", "key")


REFUSALS = {
    "ValueError: Unknown configuration option: 'colour'. Valid options: algorithm, auto_heartbeat, data_dir, family, "
    "feature_budget_gb, invite_code, market, market_id, named_universe, named_universes, rotation_frequency, "
    "rotation_seed, server_url, signal_service_url, subfamily, sync_http_chunk_bytes, sync_http_transport, "
    "sync_max_concurrency": lambda m: m.configure(colour=1),
    "ValueError: Option 'data_dir' expects str or PathLike, got int.": lambda m: m.configure(data_dir=5),
    "ValueError: Option 'invite_code' expects str or NoneType, got int.": lambda m: m.configure(invite_code=5),
    "ValueError: data_dir cannot be empty.": lambda m: m.configure(data_dir=""),
    "ValueError: named_universe cannot be empty.": lambda m: m.configure(named_universe=" "),
    "ValueError: named_universe must be a single safe path segment.": lambda m: m.configure(named_universe=".."),
    "ValueError: market_id must be a positive integer.": lambda m: m.configure(market_id=False),
    "ValueError: Invite code required. Pass --invite-code, set invite_code in settings.yaml, or call "
    "register(invite_code=...).": lambda m: m.register(),
    "ValueError: Runtime bootstrap requires an explicit positive market_id. Set 'market_id' to a positive integer in "
    "~/.sablecrest/settings.yaml (run `sablecrest init` to add the field).": lambda m: m.register(bootstrap_runtime=1),
    "ValueError: Invalid private key format. Expected hex string (64 characters) or 32 bytes.": lambda m: m.login(None),
    "OSError: Unsafe wallet key at {}/linked/wallet.key. Refusing to use wallet.key with unsafe ownership, type, or "
    "permissions.": lambda m: m._read_wallet_key("linked"),
    "OSError: Cannot read wallet from {}/linked/wallet.key. Check file permissions.": read_when_gone,
    "OSError: Cannot write wallet to {}/dangling/wallet.key. Check directory permissions.": write_dangling,
    "TypeError: login() takes at least 1 positional argument (0 given)": lambda m: m.login(),
}


@pytest.mark.parametrize("message", REFUSALS, ids=lambda message: message[:60])
def test_refusals_say_exactly(message, module, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    for name, target in (("linked", tmp_path), ("dangling", "nowhere"), ("data", "nowhere")):
        os.mkdir(name)
        os.symlink(target, f"{name}/wallet.key")
    module._config["data_dir"] = "data"
    with pytest.raises((OSError, TypeError, ValueError)) as caught:
        REFUSALS[message](module)
    assert f"{caught.type.__name__}: {caught.value}" == message.replace("{}", str(tmp_path))


@pytest.mark.parametrize(("name", "fields"), [("WalletRegistration", ["0xaddress"]), ("AuthToken", ["secret", 1.5])])
def test_records_are_dataclasses(name, fields, module):
    made, expected = getattr(module, name)(*fields), getattr(plain, name)(*fields)
    assert pickle.loads(pickle.dumps(made)) == made != type(made)(*fields[:-1], "other")
    assert repr(made) == repr(expected)
    assert dataclasses.asdict(made) == dataclasses.asdict(expected)
    assert list(map(repr, dataclasses.fields(made))) == list(map(repr, dataclasses.fields(expected)))


def test_module_imports_once_per_interpreter_and_only_success_counts():
    script = """
import importlib, sys, sablecrest
for name in "era_config", "auth", "errors", "runtime_module_freshness", "settings", "skills", "sync":
    sibling = importlib.import_module(f"sablecrest.{name}")
    delattr(sablecrest, name)
    sys.modules[f"sablecrest.{name}"] = None
    try:
        import sablecrest.agent_onboarding
    except ImportError as error:
        print(error)
    sys.modules[f"sablecrest.{name}"] = sibling
    setattr(sablecrest, name, sibling)

import sablecrest.agent_onboarding as first
print(first._config["data_dir"])
del sys.modules["sablecrest.agent_onboarding"]
try:
    importlib.import_module("sablecrest.agent_onboarding")
except RuntimeError as error:
    print(error)
"""
    command = [sys.executable, "-X", "dev", "-W", "error", "-c", script]
    *failures, data_dir, refusal = subprocess.check_output(command, text=True).splitlines()
    assert len(failures) == 7
    assert data_dir == os.path.expanduser("~/.sablecrest/data")
    assert not os.path.exists(data_dir)
    assert refusal == "Module 'agent_onboarding' has already been imported. Re-initialisation is not supported."
