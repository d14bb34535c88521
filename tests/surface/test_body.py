"""What importing the module binds and says, and how often it can be imported."""

import importlib
import inspect
import pickle
import re
import subprocess
import sys
from dataclasses import dataclass

import pytest
from support.subject import NAME, SIBLINGS

# fmt: off
#: Bound before anything of its own, in this order.
IMPORTED = """
    importlib hashlib json logging os secrets shutil _stat sys types urllib dataclass field SimpleNamespace List
    Optional EpochName auth RuntimeModuleDownloadIncomplete RuntimeModuleHashMismatch RuntimeModuleReloadFailed
    RuntimeFreshnessGuard is_runtime_module_kind runtime_module_name_from_kind validate_synced_runtime_module_contract
    DATA_DIR default_settings_path load_settings resolve_data_dir list_skills CURRENT_PLATFORM"""
FIND_HEARTBEAT = """Search for HEARTBEAT.md in cwd + up to 3 parent directories.

Returns the path to HEARTBEAT.md if found, None otherwise."""
WRITE_WALLET_KEY = """Write private key to wallet.key with 0600 permissions.

    Raises IOError with exact L2 message format on failure.
"""
#: What is called, and the words of its TypeError behind the function's name.
MISUSE = {
    "get_agents_md_fragment(1)": "takes exactly 0 positional arguments (1 given)",
    "login()": "takes at least 1 positional argument (0 given)",
    "register(1, 2, 3, 4, 5, 6)": "takes at most 5 positional arguments (6 given)",
    "login('', private_key='')": "got multiple values for keyword argument 'private_key'",
    "_legacy_src_module_name(é=1)": "got an unexpected keyword argument 'é'",
    "_LocalRuntimeSyncManager({}).acquire(1)": "takes exactly 1 positional argument (2 given)",
}
#: Each option with its value at first, in the order of `_config`.
OPTIONS = {
    "auto_heartbeat": True, "data_dir": SIBLINGS["settings"].DATA_DIR, "server_url": "https://api.sablecrest.example",
    "signal_service_url": None, "invite_code": None, "sync_http_transport": "auto", "sync_http_chunk_bytes": 67108864,
    "sync_max_concurrency": 8, "named_universe": "", "market_id": None, "_settings_path": None,
}
#: And each that can be configured with its types, those from the blank line on being written to the rotation settings.
TYPES = """auto_heartbeat: bool, data_dir: str or PathLike, server_url: str, signal_service_url: str,
    invite_code: str or NoneType, sync_http_transport: str, sync_http_chunk_bytes: int, sync_max_concurrency: int,
    named_universe: str, market_id: int

    feature_budget_gb: int or float, market: str, named_universes: list, algorithm: str, family: str, subfamily: str,
    rotation_frequency: str, rotation_seed: int"""
# fmt: on


# Their signatures are compared by mypy's stubtest, and the order of its own names by the check of the reference.
def test_names_are_bound_after_what_is_imported_and_functions_know_theirs(module):
    bound = [(name, value) for name, value in vars(module).items() if not name.startswith("__")]
    count = len(IMPORTED.split())
    assert [name for name, _ in bound[:count]] == IMPORTED.split()
    known_as = {name: (f.__name__, f.__module__) for name, f in bound[count:] if inspect.isroutine(f)}
    assert known_as == {name: (name, NAME) for name in known_as}


# The check of the reference compares their first lines, where they have one.
def test_docstrings_are_the_contract(module):
    assert module.__doc__ == "Agent onboarding subcomponent -- register, login, configure, heartbeat."
    assert inspect.cleandoc(module._find_heartbeat.__doc__) == FIND_HEARTBEAT
    assert module._write_wallet_key.__doc__ == WRITE_WALLET_KEY
    public = [f for name, f in vars(module).items() if name[0] != "_" and getattr(f, "__module__", "") == NAME]
    assert [f.__name__ for f in public if not f.__doc__] == ["create_runtime_freshness_guard"]


def test_options_have_their_values_types_and_order(module):
    assert ([*module._config.items()], module._auth_manager) == ([*OPTIONS.items()], None)
    types = [f"{name}: {module._expected_type_name(kind)}" for name, kind in module._VALID_OPTIONS.items()]
    assert types == re.split(r",?\s{2,}|, ", TYPES)
    assert {*re.findall(r"(\w+):", TYPES.partition("\n\n")[2])} == module._ROTATION_SETTING_OPTIONS


def test_records_pickle_and_hide_the_token(module):
    made = [module.WalletRegistration("0xa"), module.AuthToken(token="secret", expires_at=1.5)]
    assert repr(made) == "[WalletRegistration(address='0xa'), AuthToken(token='<redacted>', expires_at=1.5)]"
    assert repr(dataclass(slots=True)(module.AuthToken)("secret", 1.5)) == repr(made[1])
    assert pickle.loads(pickle.dumps(made)) == made != [made[0], module.AuthToken("secret", 2.5)]


compiled = pytest.mark.skipif("config.option.plain", reason="plain Python words and refuses this in its own way")


@compiled
def test_misuse_and_a_second_initialisation_are_refused(module, monkeypatch):
    for call, words in MISUSE.items():
        with pytest.raises(TypeError) as refusal:
            eval(call, dict(vars(module)))
        assert str(refusal.value) == f"{re.findall(r'(\w+)[(]', call)[-1]}() {words}"
    assert module.create_runtime_freshness_guard("d")._module_loader.__qualname__ == "_load"
    monkeypatch.delitem(sys.modules, NAME)
    refusal = "Module 'agent_onboarding' has already been imported. Re-initialisation is not supported."
    with pytest.raises(RuntimeError, match=f"^{refusal}$"):
        importlib.import_module(NAME)


@compiled
def test_import_fails_without_a_sibling_and_can_be_tried_again():
    script = """if True:
        import sys; sys.modules["sablecrest.sync"] = None
        try: import sablecrest.agent_onboarding; sys.exit("imported")
        except ImportError: del sys.modules["sablecrest.sync"]
        import sablecrest.agent_onboarding"""
    subprocess.run([sys.executable, "-c", script], check=True)
