# The same algorithms in plain Python, to measure the native module against.
"""Agent onboarding subcomponent -- register, login, configure, heartbeat."""

import importlib.util
import hashlib
import json
import logging
import os
import secrets
import shutil
import stat as _stat
import sys
import types
import urllib.error
import urllib.request
from dataclasses import dataclass, field
from types import SimpleNamespace
from typing import List, Optional

from sablecrest.era_config import EpochName
from sablecrest import auth
from sablecrest.errors import (
    RuntimeModuleDownloadIncomplete,
    RuntimeModuleHashMismatch,
    RuntimeModuleReloadFailed,
)
from sablecrest.runtime_module_freshness import (
    RuntimeFreshnessGuard,
    is_runtime_module_kind,
    runtime_module_name_from_kind,
    validate_synced_runtime_module_contract,
)
from sablecrest.settings import DATA_DIR, default_settings_path, load_settings, resolve_data_dir
from sablecrest.skills import list_skills
from sablecrest.sync import CURRENT_PLATFORM

logger = logging.getLogger("sablecrest.agent_onboarding")

DEFAULT_SERVER_URL = "https://api.sablecrest.example"


def _exception_chain_detail(exc):
    parts = []
    visited = set()
    current = exc
    while current is not None and len(parts) < 4 and id(current) not in visited:
        visited.add(id(current))
        text = str(current).strip()
        part = f"{type(current).__name__}: {text}" if text else type(current).__name__
        diagnostic = getattr(current, "diagnostic_detail", None)
        if diagnostic:
            part = f"{part}; diagnostic: {diagnostic}"
        if part not in parts:
            parts.append(part)
        current = getattr(current, "__cause__", None)
    return "; caused by ".join(parts)


def _sha256_file(path):
    hasher = hashlib.sha256()
    with open(path, "rb") as handle:
        while chunk := handle.read(1024 * 1024):
            hasher.update(chunk)
    return hasher.hexdigest()


def _content_addressed_extension_path(module_name, path, digest):
    root = os.path.dirname(os.path.realpath(path))
    runtime_path = os.path.join(root, f".sablecrest-runtime-{module_name}-{digest[:16]}.so")
    if os.path.exists(runtime_path):
        return runtime_path
    try:
        os.link(path, runtime_path)
    except OSError:
        shutil.copy2(path, runtime_path)
    return runtime_path


def _prune_runtime_extension_copies(module_name, keep_path, *, max_copies=2):
    root = os.path.dirname(os.path.realpath(keep_path))
    prefix = f".sablecrest-runtime-{module_name}-"
    keep_real = os.path.realpath(keep_path)
    candidates = []
    try:
        names = os.listdir(root)
    except OSError:
        return
    for name in names:
        if not (name.startswith(prefix) and name.endswith(".so")):
            continue
        path = os.path.join(root, name)
        try:
            st = os.stat(path)
        except OSError:
            continue
        candidates.append((path, st.st_mtime_ns))
    if len(candidates) <= max_copies:
        return
    keep = {keep_real}
    for path, _ in sorted(candidates, key=lambda candidate: candidate[1], reverse=True):
        if len(keep) >= max_copies:
            break
        keep.add(os.path.realpath(path))
    for path, _ in candidates:
        if os.path.realpath(path) in keep:
            continue
        try:
            os.unlink(path)
        except OSError:
            pass


def _load_extension_from_path(module_name, path):
    digest = _sha256_file(path)
    runtime_path = _content_addressed_extension_path(module_name, path, digest)
    existing = sys.modules.get(module_name)
    if (
        existing is not None
        and getattr(existing, "__file__", None) == runtime_path
        and getattr(existing, "_sablecrest_module_sha256", None) == digest
    ):
        return existing
    previous = existing
    spec = importlib.util.spec_from_file_location(module_name, runtime_path)
    if spec is None or spec.loader is None:
        raise RuntimeError(f"Could not create import spec for {runtime_path}")
    module = importlib.util.module_from_spec(spec)
    # Registered before it runs, so that the module can import itself.
    sys.modules[module_name] = module
    try:
        spec.loader.exec_module(module)
        module._sablecrest_module_sha256 = digest
        module._sablecrest_module_source_path = os.path.realpath(path)
        _prune_runtime_extension_copies(module_name, runtime_path)
    except Exception:
        if sys.modules.get(module_name) is module:
            if previous is not None:
                sys.modules[module_name] = previous
            else:
                sys.modules.pop(module_name, None)
        raise
    return module


def _ensure_legacy_src_namespace_alias():
    try:
        import sablecrest as _sablecrest_pkg
    except Exception:
        return
    src_module = sys.modules.get("src")
    if src_module is None:
        try:
            src_module = importlib.import_module("src")
        except Exception:
            src_module = types.ModuleType("src")
    src_paths = list(getattr(src_module, "__path__", []))
    known_paths = {os.path.realpath(path) for path in src_paths}
    for package_path in list(getattr(_sablecrest_pkg, "__path__", [])):
        path = os.path.realpath(package_path)
        if path not in known_paths:
            src_paths.append(package_path)
            known_paths.add(path)
    src_module.__path__ = src_paths
    src_module.__package__ = "src"
    sys.modules["src"] = src_module
    _ensure_legacy_src_obfuscation_core_alias(src_module)


def _ensure_package_module(name):
    module = sys.modules.get(name)
    if module is None:
        try:
            module = importlib.import_module(name)
        except Exception:
            module = None
    if module is None or not hasattr(module, "__path__"):
        module = types.ModuleType(name)
        module.__path__ = []
        module.__package__ = name
        sys.modules[name] = module
    parent_name, _, child_name = name.rpartition(".")
    if parent_name:
        parent = sys.modules.get(parent_name)
        if parent is not None:
            setattr(parent, child_name, module)
    return module


def _legacy_src_module_name(*parts):
    return ".".join(parts)


def _ensure_legacy_src_obfuscation_core_alias(src_module):
    obfuscation_pkg = _ensure_package_module(_legacy_src_module_name("src", "obfuscation"))
    src_module.obfuscation = obfuscation_pkg
    _ensure_package_module(_legacy_src_module_name("src", "obfuscation", "layers"))
    shared_name = _legacy_src_module_name("src", "obfuscation", "layers", "shared")
    _ensure_package_module(shared_name)
    core_name = _legacy_src_module_name("src", "obfuscation", "layers", "shared", "_core")
    core_module = sys.modules.get(core_name)
    if core_module is None:
        core_module = types.ModuleType(core_name)

    def era_number_identity_salt(market_id, era_number):
        for name, value in (("market_id", market_id), ("era_number", era_number)):
            if not isinstance(value, int):
                raise TypeError(f"{name} must be an integer, got {type(value).__name__}")
            if value <= 0:
                raise ValueError(f"{name} must be positive, got {value}")
        return market_id.to_bytes(8, "big") + era_number.to_bytes(8, "big")

    def era_salt(market_id, era_number):
        return era_number_identity_salt(market_id, era_number)

    core_module.era_number_identity_salt = era_number_identity_salt
    core_module.era_salt = era_salt
    core_module.__package__ = shared_name
    sys.modules[core_name] = core_module

    import sablecrest as package

    package_name = getattr(package, "__package__", None)
    if package_name is None:
        package_name = getattr(package, "__name__", None)
    if package_name is not None:
        package_core_name = _legacy_src_module_name(package_name, "obfuscation", "layers", "shared", "_core")
        sys.modules[package_core_name] = core_module
    shared_pkg = sys.modules.get(shared_name)
    if shared_pkg is not None:
        shared_pkg._core = core_module


def _manifest_files(manifest):
    if manifest is None:
        return {}
    if isinstance(manifest, dict):
        files = manifest.get("files", {})
    else:
        files = getattr(manifest, "files", {})
    return files if isinstance(files, dict) else {}


def _read_manifest(data_dir):
    path = os.path.join(data_dir, "manifest.json")
    if not os.path.exists(path):
        raise RuntimeModuleDownloadIncomplete(f"Runtime manifest is missing at {path}.", relative_path="manifest.json")
    with open(path, "r", encoding="utf-8") as handle:
        data = json.load(handle)
    return SimpleNamespace(
        era_number=data.get("era_number"),
        version=data.get("version"),
        files=data.get("files", {}),
    )


def _runtime_module_manifest_entries(manifest):
    for relative_path, entry in sorted(_manifest_files(manifest).items()):
        if not isinstance(entry, dict):
            continue
        kind = str(entry.get("kind", ""))
        if not is_runtime_module_kind(kind):
            continue
        platform = entry.get("platform")
        if platform and platform != CURRENT_PLATFORM:
            continue
        module_name = runtime_module_name_from_kind(kind, relative_path)
        if not module_name:
            continue
        yield module_name, relative_path, entry


def _select_runtime_module_manifest_entry(manifest, module_name):
    candidates = {module_name}
    if module_name == "era_data":
        candidates.add("vault")
    for name, relative_path, entry in _runtime_module_manifest_entries(manifest):
        if name in candidates:
            return relative_path, entry
    return None, None


def _load_manifest_runtime_module(data_dir, module_name, *, expected_sha256=None, manifest=None):
    if sys.version_info[:2] != (3, 12):
        version = ".".join(str(part) for part in sys.version_info[:3])
        raise RuntimeModuleReloadFailed(
            "SableCrest release runtime modules require CPython 3.12; "
            f"running CPython {version}. Recreate the environment with python3.12 "
            "before running sablecrest start.",
            module_name=module_name,
            expected_sha256=expected_sha256,
        )
    expanded = str(resolve_data_dir(data_dir, ensure=False))
    runtime_root = os.path.realpath(expanded)
    if runtime_root not in sys.path:
        sys.path.insert(0, runtime_root)
    if manifest is None:
        manifest = _read_manifest(expanded)
    relative_path, file_info = _select_runtime_module_manifest_entry(manifest, module_name)
    if relative_path is None:
        raise RuntimeModuleDownloadIncomplete(
            f"Manifest does not contain a runtime module for {module_name!r}.",
            module_name=module_name,
            expected_sha256=expected_sha256,
        )
    expected = expected_sha256 or file_info.get("sha256")
    candidate = os.path.join(expanded, relative_path)
    if not os.path.exists(candidate):
        raise RuntimeModuleDownloadIncomplete(
            f"Runtime module {module_name!r} is missing at {candidate}.",
            module_name=module_name,
            relative_path=relative_path,
            expected_sha256=expected,
        )
    actual = _sha256_file(candidate)
    if expected and actual != expected:
        raise RuntimeModuleHashMismatch(
            f"Runtime module {module_name!r} hash mismatch at {relative_path}: expected {expected}, got {actual}.",
            module_name=module_name,
            relative_path=relative_path,
            expected_sha256=expected,
            actual_sha256=actual,
        )
    validate_synced_runtime_module_contract(
        module_name=module_name,
        relative_path=relative_path,
        file_info=file_info,
        local_path=candidate,
    )
    try:
        _ensure_legacy_src_namespace_alias()
        module = _load_extension_from_path(module_name, candidate)
    except Exception as exc:
        raise RuntimeModuleReloadFailed(
            f"Runtime module {module_name!r} failed to load from {relative_path}: {exc}",
            module_name=module_name,
            relative_path=relative_path,
            expected_sha256=expected,
            actual_sha256=actual,
        ) from exc
    if expected and getattr(module, "_sablecrest_module_sha256", None) != expected:
        raise RuntimeModuleHashMismatch(
            f"Runtime module {module_name!r} loaded with unexpected hash.",
            module_name=module_name,
            relative_path=relative_path,
            expected_sha256=expected,
            actual_sha256=getattr(module, "_sablecrest_module_sha256", None),
        )
    return module


def _load_runtime_modules_from_manifest(data_dir, manifest):
    loaded = {}
    entries = list(_runtime_module_manifest_entries(manifest))
    entries.sort(key=lambda entry: (0 if entry[0] == "era_data" else 1, entry[0], entry[1]))
    for module_name, relative_path, file_info in entries:
        if module_name in loaded:
            continue
        loaded[module_name] = _load_manifest_runtime_module(
            data_dir,
            module_name,
            expected_sha256=file_info.get("sha256"),
            manifest=manifest,
        )
    return loaded


def create_runtime_freshness_guard(data_dir):
    def _load(module_name, expected_sha256):
        return _load_manifest_runtime_module(data_dir, module_name, expected_sha256=expected_sha256)

    return RuntimeFreshnessGuard(data_dir=data_dir, module_loader=_load)


_BACKTEST_MODULE_NAMES = ("sablecrest.simulator_engine.backtest",) * 3
_BACKTEST_PARENT_MODULE_NAMES = ("sablecrest.simulator_engine",) * 3


def _forget_preloaded_backtester_modules():
    for name in _BACKTEST_MODULE_NAMES:
        sys.modules.pop(name, None)
    for name in _BACKTEST_PARENT_MODULE_NAMES:
        parent = sys.modules.get(name)
        if parent is not None:
            try:
                del parent.backtest
            except AttributeError:
                pass


def _module_not_found_is_candidate(exc, module_name):
    missing = getattr(exc, "name", None)
    if not missing:
        return False
    return missing == module_name or module_name.startswith(missing + ".")


def _import_backtester_module():
    last_missing = None
    for module_name in _BACKTEST_MODULE_NAMES:
        try:
            return importlib.import_module(module_name)
        except ModuleNotFoundError as exc:
            if not _module_not_found_is_candidate(exc, module_name):
                raise
            last_missing = exc
    raise ModuleNotFoundError(
        "No wheel-bundled backtester module found; tried " + ", ".join(_BACKTEST_MODULE_NAMES)
    ) from last_missing


def _load_per_era_backtester(data_dir, **kwargs):
    """Load the wheel-bundled canonical backtester."""
    expanded = _canonical_data_dir(data_dir)
    runtime_root = os.path.realpath(expanded)
    if runtime_root not in sys.path:
        sys.path.insert(0, runtime_root)
    if sys.modules.get("era_data") is None:
        logger.debug("Era data module is not loaded for data dir %s", data_dir)
    _forget_preloaded_backtester_modules()
    module = _import_backtester_module()
    logger.info("Loaded wheel-bundled backtester %s for data dir %s", module.__name__, data_dir)
    return module


@dataclass
class WalletRegistration:
    """Returned by register() on successful wallet creation/re-auth."""

    address: str


@dataclass
class AuthToken:
    """Returned by login() on successful authentication."""

    token: str = field(repr=False)
    expires_at: float

    def __repr__(self):
        return f"AuthToken(token='<redacted>', expires_at={self.expires_at!r})"


_config = {
    "auto_heartbeat": True,
    "data_dir": DATA_DIR,
    "server_url": DEFAULT_SERVER_URL,
    "signal_service_url": None,
    "invite_code": None,
    "sync_http_transport": "auto",
    "sync_http_chunk_bytes": 64 * 1024 * 1024,
    "sync_max_concurrency": 8,
    "named_universe": "",
    "market_id": None,
    "_settings_path": None,
}

_auth_manager = None

_VALID_OPTIONS = {
    "auto_heartbeat": bool,
    "data_dir": (str, os.PathLike),
    "server_url": str,
    "signal_service_url": str,
    "invite_code": (str, type(None)),
    "sync_http_transport": str,
    "sync_http_chunk_bytes": int,
    "sync_max_concurrency": int,
    "named_universe": str,
    "market_id": int,
    "feature_budget_gb": (int, float),
    "market": str,
    "named_universes": list,
    "algorithm": str,
    "family": str,
    "subfamily": str,
    "rotation_frequency": str,
    "rotation_seed": int,
}

_ROTATION_SETTING_OPTIONS = {
    "feature_budget_gb",
    "market",
    "named_universes",
    "algorithm",
    "family",
    "subfamily",
    "rotation_frequency",
    "rotation_seed",
}


def _expected_type_name(expected_type):
    if isinstance(expected_type, tuple):
        return " or ".join(member.__name__ for member in expected_type)
    return expected_type.__name__


_HEARTBEAT_STATIC_SECTION = """\
## [SableCrest] Search Monitoring

Check these items to stay on top of your signal search:

- [ ] **Search status**: Run `sablecrest.search_status()` — is the search running? Any errors to address?
- [ ] **Discovery rate check**: Run `sablecrest.get_search_velocity()` — is your signals-per-hour trending up, stable, or declining?
- [ ] **Suggestions**: Run `sablecrest.get_suggestions()` — are there underexplored function families or high-potential features to focus on?
- [ ] **Milestone check**: How many signals have you found? Any new milestones (first signal, 10th signal, Strategy unlock at 100)?
- [ ] **Strategy review**: If discovery rate is declining, consider: restarting with a different template, increasing n_jobs, or creating a custom template focused on high-potential areas.
"""

_NUDGE_TEXTS = {
    "discovery_rate_declining": (
        "- [ ] [SableCrest] Search discovery rate has dropped significantly. "
        "Run analytics and consider adjusting your template."
    ),
    "era_change": (
        "- [ ] [SableCrest] New era detected. Your search will pause for re-sync. Check status after sync completes."
    ),
    "first_signal": "- [ ] [SableCrest] First signal found! Check status for details.",
    "10_signals": ("- [ ] [SableCrest] 10 signals found. Review analytics to see which functions/features work best."),
    "strategy_unlock": ("- [ ] [SableCrest] Strategy search unlocked! You can now search for Strategies."),
}

_AGENTS_MD_FRAGMENT = """\
## SableCrest Integration
- Skills: Provided via `sablecrest.list_skills()` (returns bundle SKILL.md paths)
- Tools: register, search, stop, status, analytics (via Python API)
- Heartbeat: Auto-injected monitoring checklist
"""


def _find_heartbeat(working_dir=None):
    """Search for HEARTBEAT.md in cwd + up to 3 parent directories.

    Returns the path to HEARTBEAT.md if found, None otherwise."""
    search_dir = os.getcwd() if working_dir is None else working_dir
    for _ in range(4):
        candidate = os.path.join(search_dir, "HEARTBEAT.md")
        if os.path.exists(candidate):
            return candidate
        parent = os.path.dirname(search_dir)
        if parent == search_dir:
            break
        search_dir = parent
    return None


def _normalize_key(raw_key):
    """Ensure private key has 0x prefix for AuthManager."""
    if raw_key.startswith("0x") or raw_key.startswith("0X"):
        return raw_key
    return "0x" + raw_key


def _resolve_invite_code(invite_code):
    """Return canonical invite code from argument/settings before AuthManager creation."""
    if invite_code is None:
        invite_code = _config.get("invite_code")
    resolved = auth._normalize_invite_code(invite_code)
    if resolved is None:
        raise ValueError(
            "Invite code required. Pass --invite-code, set invite_code in settings.yaml, "
            "or call register(invite_code=...)."
        )
    return resolved


def _resolve_optional_invite_code(invite_code):
    """Return canonical explicit invite code for existing-wallet re-auth, or None."""
    return auth._normalize_invite_code(invite_code)


def _safe_named_universe(value):
    text = "" if value is None else str(value).strip()
    if not text:
        return None
    if text in (".", "..") or "/" in text or "\\" in text or "\0" in text:
        return None
    return text


def _configured_signal_service_url():
    return _config.get("signal_service_url") or _config.get("server_url") or DEFAULT_SERVER_URL


def _fetch_eras_payload(am):
    from http.client import HTTPException

    token = am.get_token()
    if not token:
        raise RuntimeError("Registration bootstrap could not fetch /eras without an auth token.")
    url = _configured_signal_service_url().rstrip("/") + "/eras"
    authorization = f"Bearer {token}"
    answer = None
    try:
        request = urllib.request.Request(url, headers={"Authorization": authorization}, method="GET")
        response = urllib.request.urlopen(request, timeout=15)
        status = getattr(response, "status", 200)
        answer = status, response.read()
    except (OSError, urllib.error.URLError, TimeoutError, HTTPException, ValueError) as exc:
        if authorization.isascii() and authorization.isprintable():
            raise RuntimeError("Registration bootstrap failed to fetch /eras.") from exc
    if answer is None:
        # Raised outside the handler: what refuses a token that cannot stand in a header quotes it.
        raise RuntimeError("Registration bootstrap failed to fetch /eras.")
    status, body = answer
    if status != 200:
        raise RuntimeError(f"Registration bootstrap failed to fetch /eras: HTTP {status}.")
    try:
        payload = json.loads(body)
    except (ValueError, RecursionError) as exc:
        raise RuntimeError("Registration bootstrap received invalid /eras JSON.") from exc
    if not isinstance(payload, dict):
        raise RuntimeError("Registration bootstrap received invalid /eras payload.")
    return payload


def _append_unique_named_universe(values, value):
    name = _safe_named_universe(value)
    if name and name not in values:
        values.append(name)


def _append_allowed_named_universes(values, raw):
    if isinstance(raw, list):
        for item in raw:
            _append_unique_named_universe(values, item)
    else:
        _append_unique_named_universe(values, raw)


def _active_era_named_universe_candidates(era):
    candidates = []
    _append_unique_named_universe(candidates, era.get("named_universe"))
    _append_allowed_named_universes(candidates, era.get("allowed_named_universes"))
    pools = era.get("signal_pools")
    if isinstance(pools, list):
        for pool in pools:
            if isinstance(pool, dict):
                _append_allowed_named_universes(candidates, pool.get("allowed_named_universes"))
    universes = era.get("universes")
    if isinstance(universes, list):
        for item in universes:
            if isinstance(item, dict):
                item = item.get("named_universe") or item.get("id") or item.get("name")
            _append_unique_named_universe(candidates, item)
    elif isinstance(universes, dict):
        for name in sorted(universes):
            _append_unique_named_universe(candidates, name)
    return candidates


def _first_allowed_named_universe_from_era_config(era_config):
    if not isinstance(era_config, dict):
        return None
    pools = era_config.get("signal_pools")
    if isinstance(pools, list):
        for pool in pools:
            if not isinstance(pool, dict):
                continue
            allowed = pool.get("allowed_named_universes")
            for item in allowed if isinstance(allowed, list) else [allowed]:
                name = _safe_named_universe(item)
                if name:
                    return name
    allowed = era_config.get("allowed_named_universes")
    for item in allowed if isinstance(allowed, list) else [allowed]:
        name = _safe_named_universe(item)
        if name:
            return name
    return _safe_named_universe(era_config.get("named_universe"))


def _resolve_active_named_universe(am):
    configured = _safe_named_universe(_config.get("named_universe"))
    if configured:
        _config["named_universe"] = configured
        return configured
    payload = _fetch_eras_payload(am)
    eras_by_market = payload.get("eras_by_market") or payload.get("market_era_groups")
    if not isinstance(eras_by_market, dict):
        raise RuntimeError("Registration bootstrap /eras payload is missing eras_by_market.")
    market_id = int(_config.get("market_id"))
    market_eras = eras_by_market.get(str(market_id)) or eras_by_market.get(market_id)
    if not isinstance(market_eras, list) or not market_eras:
        raise RuntimeError(f"Registration bootstrap found no eras for market_id={market_id}.")
    active_eras = [
        era for era in market_eras if isinstance(era, dict) and str(era.get("state", "")).lower() == "active"
    ]
    # A market without an active era still yields a universe, from its first listed era.
    selected = active_eras[0] if active_eras else market_eras[0]
    candidates = _active_era_named_universe_candidates(selected)
    if not candidates:
        raise RuntimeError("Registration bootstrap expected at least one active named universe from /eras.")
    _config["named_universes"] = list(candidates)
    _config["named_universe"] = candidates[0]
    return candidates[0]


def _canonical_data_dir(data_dir):
    """Return the expanded canonical data directory path."""
    return str(resolve_data_dir(data_dir, ensure=False))


def _apply_file_settings(settings_path=None):
    """Load .sablecrest/settings.yaml and apply supported process settings."""
    settings = load_settings(settings_path, ensure=False)
    if settings_path is not None:
        used_path = os.path.abspath(os.path.expanduser(os.fspath(settings_path)))
    else:
        used_path = default_settings_path()
    _config["_settings_path"] = str(used_path)
    if settings.get("server_url") and _config.get("server_url") == DEFAULT_SERVER_URL:
        _config["server_url"] = str(settings["server_url"])
    if settings.get("signal_service_url") and not _config.get("signal_service_url"):
        _config["signal_service_url"] = str(settings["signal_service_url"])
    if "invite_code" in settings:
        _config["invite_code"] = settings.get("invite_code")
    market_id_setting = settings.get("market_id")
    if market_id_setting is not None:
        try:
            _config["market_id"] = int(market_id_setting)
        except (TypeError, ValueError):
            _config["market_id"] = market_id_setting
    if _config.get("data_dir") == DATA_DIR:
        _config["data_dir"] = str(resolve_data_dir(settings_path=settings_path, ensure=False))
    for key in ("sync_http_transport", "sync_http_chunk_bytes", "sync_max_concurrency"):
        _config[key] = settings[key]


def _wallet_key_path(data_dir):
    """Return canonical wallet.key path under the canonical data directory."""
    return os.path.join(_canonical_data_dir(data_dir), "wallet.key")


def _unsafe_wallet_error(path):
    return IOError(
        f"Unsafe wallet key at {path}. Refusing to use wallet.key with unsafe ownership, type, or permissions."
    )


def _check_wallet_fd(wallet_path, fd):
    """Validate an opened wallet.key fd and tighten permissions."""
    st = os.fstat(fd)
    if not _stat.S_ISREG(st.st_mode):
        raise _unsafe_wallet_error(wallet_path)
    if hasattr(os, "getuid") and st.st_uid != os.getuid():
        raise _unsafe_wallet_error(wallet_path)
    if st.st_mode & 0o077:
        os.fchmod(fd, 0o600)


def _read_wallet_key(data_dir):
    """Read existing wallet.key after symlink/type/owner/permission checks."""
    wallet_path = _wallet_key_path(data_dir)
    if not os.path.exists(wallet_path):
        return None
    try:
        st = os.lstat(wallet_path)
    except OSError:
        raise IOError(f"Cannot read wallet from {wallet_path}. Check file permissions.")
    if _stat.S_ISLNK(st.st_mode) or not _stat.S_ISREG(st.st_mode):
        raise _unsafe_wallet_error(wallet_path)
    if hasattr(os, "getuid") and st.st_uid != os.getuid():
        raise _unsafe_wallet_error(wallet_path)
    flags = os.O_RDONLY
    if hasattr(os, "O_NOFOLLOW"):
        flags |= os.O_NOFOLLOW
    try:
        fd = os.open(wallet_path, flags)
    except OSError:
        raise _unsafe_wallet_error(wallet_path)
    try:
        _check_wallet_fd(wallet_path, fd)
        with os.fdopen(fd, "r") as f:
            fd = None  # the file object closes it from here on
            return f.read().strip()
    finally:
        if fd is not None:
            os.close(fd)


def _write_wallet_key(data_dir, key_content):
    data_dir = _canonical_data_dir(data_dir)
    os.makedirs(data_dir, exist_ok=True)
    wallet_path = _wallet_key_path(data_dir)
    if os.path.exists(wallet_path):
        try:
            st = os.lstat(wallet_path)
        except OSError:
            raise IOError(f"Cannot write wallet to {wallet_path}. Check directory permissions.")
        if _stat.S_ISLNK(st.st_mode) or not _stat.S_ISREG(st.st_mode):
            raise _unsafe_wallet_error(wallet_path)
        if hasattr(os, "getuid") and st.st_uid != os.getuid():
            raise _unsafe_wallet_error(wallet_path)
    try:
        flags = os.O_WRONLY | os.O_CREAT | os.O_TRUNC
        if hasattr(os, "O_NOFOLLOW"):
            flags |= os.O_NOFOLLOW
        fd = os.open(wallet_path, flags, 0o600)
        try:
            _check_wallet_fd(wallet_path, fd)
            os.fchmod(fd, 0o600)
            os.write(fd, key_content.encode("utf-8"))
        finally:
            os.close(fd)
        os.chmod(wallet_path, 0o600)
    except (IOError, OSError):
        raise IOError(f"Cannot write wallet to {wallet_path}. Check directory permissions.")


# A docstring in its place would lose its indentation.
_write_wallet_key.__doc__ = (
    "Write private key to wallet.key with 0600 permissions.\n\n"
    "    Raises IOError with exact L2 message format on failure.\n"
)


class _LocalRuntimeSyncManager:
    def __init__(self, manifest, runtime_freshness_guard=None):
        self._manifest = manifest
        self._vocabulary = {}
        self.runtime_freshness_guard = runtime_freshness_guard

    def get_manifest(self):
        return self._manifest

    def acquire(self):
        return None

    def release(self):
        return None

    def request_for_sync(self):
        return []

    def register_era_callback(self, callback):
        return None

    def unregister_era_callback(self, callback):
        return None


def _read_json_if_present(path):
    if not path:
        return None
    if not os.path.exists(path):
        return None
    with open(path, "r", encoding="utf-8") as handle:
        return json.load(handle)


def _read_manifest_payload_with_signals_index(data_dir):
    from sablecrest import _runtime

    return _runtime._read_manifest_payload_with_signals_index(data_dir)


def _manifest_payload_mapping_or_empty(manifest_payload, section):
    value = manifest_payload.get(section)
    return dict(value) if isinstance(value, dict) else {}


def _local_vocabulary_path(data_dir, named_universe):
    if not named_universe:
        return None
    path = os.path.join(data_dir, "features", named_universe, "vocabulary.json")
    return path if os.path.exists(path) else None


def _bootstrap_local_runtime_from_config(am):
    data_dir = _canonical_data_dir(_config.get("data_dir"))
    era_config = _config.get("era_config")
    universe = _config.get("named_universe")
    if isinstance(era_config, dict) and not universe:
        universe = _first_allowed_named_universe_from_era_config(era_config)

    from sablecrest.obfuscation import load_vocabulary
    from sablecrest import _runtime
    from sablecrest.search_tracking import SearchTracker

    vocabulary = None
    vocabularies = {}
    vocabulary_path = _local_vocabulary_path(data_dir, universe)
    if vocabulary_path is not None:
        vocabulary = load_vocabulary(vocabulary_path)
        vocabularies = {universe: vocabulary}

    guard = create_runtime_freshness_guard(data_dir)
    manifest = _read_manifest(data_dir)
    payload = _read_manifest_payload_with_signals_index(data_dir)
    modules = _load_runtime_modules_from_manifest(data_dir, manifest)
    era_number = int(payload.get("era_number"))
    manifest = SimpleNamespace(
        era_number=era_number,
        files=_manifest_files(manifest),
        signals_index=payload.get("signals_index"),
        found_signals=_manifest_payload_mapping_or_empty(payload, "found_signals"),
        found_strategies=_manifest_payload_mapping_or_empty(payload, "found_strategies"),
        useful_signals=_manifest_payload_mapping_or_empty(payload, "useful_signals"),
    )
    sync_manager = _LocalRuntimeSyncManager(manifest, runtime_freshness_guard=guard)

    vault_module = modules.get("era_data")
    if vault_module is None:
        vault_module = modules.get("vault")
    vault = _runtime._load_vault_module(data_dir, vault_module=vault_module)
    era_config = _runtime._normalize_era_config(_config.get("era_config"), era_number, manifest=manifest)
    vault = _runtime._wrap_synced_vault(vault, manifest=manifest, era_config=era_config)
    _runtime._initialize_vault_for_backtester_import(vault, data_dir=data_dir, auth=am)

    raw_backtester = _load_per_era_backtester(
        data_dir,
        market_id=_config.get("market_id"),
        era_number=era_number,
        era_config=era_config,
    )
    registry = _runtime._build_function_registry(vocabulary)
    try:
        batch_orchestrator_cls, compute_search_plan, expression_type_cls, expression_evaluator = (
            _runtime._import_batch_runtime()
        )
    except Exception as exc:
        logger.warning(
            "Batch runtime import failed during local bootstrap; continuing without batch orchestration helpers: %s",
            exc,
        )
        batch_orchestrator_cls = None
        compute_search_plan = None
        expression_type_cls = None
        expression_evaluator = None

    evaluator = _runtime.RuntimeEvaluationAdapter(
        data_dir=data_dir,
        era_config=era_config,
        raw_backtester=raw_backtester,
        vault=vault,
        manifest=manifest,
        graph_validator=None,
        batch_orchestrator_cls=batch_orchestrator_cls,
        compute_search_plan=compute_search_plan,
        expression_type_cls=expression_type_cls,
        expression_evaluator=expression_evaluator,
        registry=registry,
        raw_vocabulary=vocabulary,
        named_universe=universe,
        auth=am,
        runtime_freshness_guard=guard,
    )
    guard.register_module_consumer("backtester", evaluator, "raw_backtester")
    search_tracker = SearchTracker(data_dir, settings_path=_config.get("_settings_path"))

    named_universes = []
    feature_dirs = {}
    manifest_adapters = {}
    if universe:
        named_universes = list(_config.get("named_universes") or [universe])
        feature_dirs[universe] = os.path.join(data_dir, "features", universe)
        manifest_adapters[universe] = _runtime._RuntimeManifestAdapter(
            feature_epoch=EpochName.SIGNAL_IS.value,
            named_universe=universe,
            era_config=era_config,
        )
    runtime = _runtime.LibraryRuntime(
        auth=am,
        auth_proxy=am,
        data_dir=data_dir,
        server_url=_configured_signal_service_url(),
        sync_manager=sync_manager,
        era_number=era_number,
        era_thread=_runtime._EraThreadProxy(era_number),
        era_config=era_config,
        search_era_config=_runtime._SearchEraConfig(era_config),
        named_universes=named_universes,
        default_named_universe=universe or None,
        vocabularies=vocabularies,
        feature_dirs=feature_dirs,
        manifest_adapters=manifest_adapters,
        vocabulary_raw=vocabulary,
        registry=registry,
        vault=vault,
        raw_backtester=raw_backtester,
        evaluator=evaluator,
        search_tracker=search_tracker,
        runtime_freshness_guard=guard,
    )
    graph_validator = _runtime._build_graph_validator(registry)
    evaluator.graph_validator = graph_validator
    runtime.graph_validator = graph_validator
    guard.register_module_consumer("backtester", runtime, "raw_backtester")
    return runtime


def _propagate_auth(am, strict=False):
    """Set _auth and runtime singletons on search_templates and simulate_signal."""
    from sablecrest import auth

    try:
        auth._set_active_auth_manager(am)
    except Exception as exc:
        logger.warning("Failed to set active auth manager: %s", exc)
        if strict:
            raise RuntimeError("SableCrest auth bootstrap failed after authentication.") from exc

    from sablecrest import sync_backoff
    from sablecrest import _runtime

    runtime = None
    try:
        runtime = _runtime.bootstrap_runtime(am, _config, _load_per_era_backtester)
    except sync_backoff.SyncBackoffCancelled:
        raise
    except Exception as exc:
        detail = _exception_chain_detail(exc)
        logger.warning("Failed to bootstrap sablecrest runtime: %s", exc)
        if strict:
            message = "SableCrest registration authenticated, but runtime data bootstrap failed"
            if detail:
                message = f"{message}: {detail}"
            raise RuntimeError(message)
    if runtime is None:
        try:
            runtime = _bootstrap_local_runtime_from_config(am)
        except Exception as exc:
            logger.debug("Failed to bootstrap local sablecrest runtime: %s", exc)
    if runtime is None and strict:
        raise RuntimeError("SableCrest registration authenticated, but runtime data bootstrap returned no runtime.")

    try:
        search_templates = importlib.import_module("sablecrest.search_templates")
        search_templates._library_runtime = runtime
    except Exception as exc:
        logger.warning("Failed to inject runtime into search_templates: %s", exc)
        if strict:
            raise RuntimeError("SableCrest search runtime injection failed.")

    exports_failure = None
    try:
        simulate_signal = importlib.import_module("sablecrest.simulate_signal")
        if runtime is None:
            raise RuntimeError("private sablecrest runtime was not initialized")
        evaluator = getattr(runtime, "evaluator", None)
        vocabularies = getattr(runtime, "vocabularies", None) or {}
        load_vocabulary = getattr(runtime, "load_vocabulary", None)
        if load_vocabulary is None:
            from sablecrest.obfuscation import load_vocabulary
        simulate_signal.init_simulate_signal(
            auth=am,
            sync_manager=getattr(runtime, "sync_manager", None),
            vault=getattr(runtime, "vault", None),
            backtester=getattr(runtime, "raw_backtester", None),
            search_tracker=getattr(runtime, "search_tracker", None),
            era_thread=getattr(runtime, "era_thread", None),
            graph_validator=getattr(runtime, "graph_validator", None),
            compute_search_plan=getattr(evaluator, "compute_search_plan", None),
            era_config=getattr(runtime, "era_config", None),
            load_vocabulary=load_vocabulary,
            useful_signal_metadata=getattr(runtime, "useful_signal_metadata", None),
            load_found_signal_pnl=getattr(runtime, "load_found_signal_pnl", None),
            signal_dir=getattr(runtime, "signal_dir", None),
            make_batch_orchestrator_cls=getattr(runtime, "make_batch_orchestrator_cls", None),
            correlate_per_pool=getattr(runtime, "correlate_per_pool", None),
            compute_mi_per_pool=getattr(runtime, "compute_mi_per_pool", None),
            vocabulary=vocabularies.get(getattr(runtime, "default_named_universe", None)),
            vocabulary_raw=getattr(runtime, "vocabulary_raw", None),
            runtime_freshness_guard=getattr(runtime, "runtime_freshness_guard", None),
        )
        try:
            import sablecrest

            sablecrest.simulate_signal = simulate_signal._simulate_signal_export
        except Exception as exc:
            logger.warning("Failed to restore top-level simulate exports: %s", exc)
            if strict:
                exports_failure = RuntimeError("SableCrest simulate exports bootstrap failed.")
                raise exports_failure
    except Exception as exc:
        if exc is exports_failure:
            raise
        logger.warning("Failed to initialize simulate_signal: %s", exc)
        detail = _exception_chain_detail(exc)
        if strict:
            message = "SableCrest simulate_signal bootstrap failed"
            if detail:
                message = f"{message}: {detail}"
            raise RuntimeError(message)


def ensure_runtime_bootstrapped(strict=True):
    """Bootstrap the shared SDK runtime from cached register/login auth."""
    if _auth_manager is None:
        from sablecrest import auth

        raise auth.AuthError("No wallet initialized. Call register() or login() first.")

    from sablecrest import _runtime

    _resolve_active_named_universe(_auth_manager)
    runtime = getattr(_runtime, "_library_runtime", None)
    if runtime is None:
        _propagate_auth(_auth_manager, strict=strict)
        return
    try:
        search_templates = importlib.import_module("sablecrest.search_templates")
        search_templates._library_runtime = runtime
    except Exception as exc:
        logger.warning("Failed to inject existing runtime into search_templates: %s", exc)
        if strict:
            raise RuntimeError("SableCrest search runtime injection failed.")


def register(
    invite_code=None,
    data_dir=None,
    market_id=None,
    bootstrap_runtime=False,
    settings_path=None,
):
    """First-run or idempotent wallet registration."""
    global _auth_manager
    _apply_file_settings(settings_path=settings_path)
    selected_data_dir = data_dir if data_dir is not None else _config["data_dir"]
    canonical_data_dir = _canonical_data_dir(selected_data_dir)
    _config["data_dir"] = canonical_data_dir
    if market_id is not None:
        _config["market_id"] = int(market_id)
    if bootstrap_runtime:
        try:
            configured_market_id = int(_config.get("market_id"))
        except (TypeError, ValueError):
            configured_market_id = 0
        if configured_market_id <= 0:
            raise ValueError(
                "Runtime bootstrap requires an explicit positive market_id. "
                "Set 'market_id' to a positive integer in ~/.sablecrest/settings.yaml "
                "(run `sablecrest init` to add the field)."
            )
    os.makedirs(canonical_data_dir, exist_ok=True)

    private_key = _read_wallet_key(canonical_data_dir)
    generated_private_key = private_key is None
    if generated_private_key:
        invite_code = _resolve_invite_code(invite_code)
        private_key = secrets.token_hex(32)
    else:
        invite_code = _resolve_optional_invite_code(invite_code)
    key_for_auth = _normalize_key(private_key)

    am = None
    try:
        am = auth.AuthManager(
            key_for_auth,
            _config["server_url"],
            invite_code=invite_code,
            register_wallet=generated_private_key,
        )
        am.authenticate()
    except ConnectionError:
        raise ConnectionError("Cannot reach SableCrest server. Check your network connection and try again.")
    except auth.RegistrationError as e:
        raise auth.RegistrationError(f"Registration failed: {e}. Contact support if this persists.")
    except auth.InvalidKeyError:
        raise ValueError("Invalid private key format. Expected hex string (64 characters) or 32 bytes.")
    except Exception:
        # The server has accepted the wallet: its key must not be lost.
        if generated_private_key and am is not None and getattr(am, "_registration_acknowledged", False):
            _write_wallet_key(canonical_data_dir, private_key)
        raise

    if generated_private_key:
        _write_wallet_key(canonical_data_dir, private_key)
    _auth_manager = am
    if bootstrap_runtime:
        _resolve_active_named_universe(am)
        _propagate_auth(am, strict=True)
    else:
        try:
            auth._set_active_auth_manager(am)
        except Exception as exc:
            logger.warning("Failed to set active auth manager: %s", exc)
    address = am.get_wallet_address()
    if _config.get("auto_heartbeat", True):
        inject_heartbeat()
    return WalletRegistration(address=address)


def login(private_key, bootstrap_runtime=False, settings_path=None):
    """Login for returning agents with existing private key."""
    global _auth_manager
    if private_key is None:
        raise ValueError("Invalid private key format. Expected hex string (64 characters) or 32 bytes.")
    _apply_file_settings(settings_path=settings_path)
    data_dir = _canonical_data_dir(_config["data_dir"])
    _config["data_dir"] = data_dir
    os.makedirs(data_dir, exist_ok=True)
    _write_wallet_key(data_dir, private_key)
    key = _normalize_key(private_key)
    try:
        am = auth.AuthManager(key, _config["server_url"])
        am.authenticate()
    except auth.InvalidKeyError:
        raise ValueError("Invalid private key format. Expected hex string (64 characters) or 32 bytes.")
    except ConnectionError:
        raise ConnectionError("Cannot reach SableCrest server. Check your network connection and try again.")
    except auth.AuthError:
        raise auth.AuthError("Authentication failed. Verify your private key is correct.")

    _auth_manager = am
    if bootstrap_runtime:
        _propagate_auth(am, strict=True)
    else:
        try:
            auth._set_active_auth_manager(am)
        except Exception as exc:
            logger.warning("Failed to set active auth manager: %s", exc)
    return AuthToken(token=am.get_token(), expires_at=am.get_token_expiry())


def configure(**kwargs):
    """Set library configuration options.

    They are checked and stored one by one, in call order: when one is refused, those before it are stored.
    """
    normalized = {}
    for key, value in kwargs.items():
        if key not in _VALID_OPTIONS:
            valid = ", ".join(sorted(_VALID_OPTIONS))
            raise ValueError(f"Unknown configuration option: '{key}'. Valid options: {valid}")
        expected = _VALID_OPTIONS[key]
        if not isinstance(value, expected):
            raise ValueError(f"Option '{key}' expects {_expected_type_name(expected)}, got {type(value).__name__}.")
        if key == "data_dir":
            value = os.fspath(value)
            if value == "":
                raise ValueError("data_dir cannot be empty.")
        elif key == "server_url":
            value = auth._validate_server_url(value)
        elif key == "named_universe":
            value = value.strip()
            if not value:
                raise ValueError("named_universe cannot be empty.")
            if value in (".", "..") or "/" in value or "\\" in value or "\0" in value:
                raise ValueError("named_universe must be a single safe path segment.")
        elif key == "market_id":
            if value <= 0:
                raise ValueError("market_id must be a positive integer.")
        normalized[key] = value
        _config[key] = value

    rotation_updates = {key: value for key, value in normalized.items() if key in _ROTATION_SETTING_OPTIONS}
    if not rotation_updates:
        return

    from sablecrest import _rotation_settings

    data_dir = _canonical_data_dir(os.fspath(_config["data_dir"]))
    os.makedirs(data_dir, exist_ok=True)
    current = {}
    named_universe = _config.get("named_universe") or "default"
    catalog_context = {
        "current_market": "crypto",
        "market": "crypto",
        "current_universes": [named_universe],
        "named_universes": [named_universe],
    }
    if _rotation_settings.settings_path_for_data_dir(data_dir).exists():
        current = _rotation_settings.load_rotation_settings(data_dir, catalog_context=catalog_context).model_dump()
    current.update(rotation_updates)
    if "market" not in current:
        current["market"] = catalog_context["market"]
    if "named_universes" not in current:
        current["named_universes"] = list(catalog_context["named_universes"])
    if "rotation_seed" not in current:
        current["rotation_seed"] = 0
    _rotation_settings.write_rotation_settings(data_dir, current)


def inject_heartbeat(working_dir=None):
    """Called by register() and search_templates during search startup.

    Searches the current directory and up to three parents for HEARTBEAT.md and appends
    the checklist section if it is not already present. Respects the auto_heartbeat opt-out.
    """
    if not _config.get("auto_heartbeat", True):
        return
    hb_path = _find_heartbeat(working_dir)
    if hb_path is None:
        return
    try:
        with open(hb_path, "r", encoding="utf-8") as f:
            content = f.read()
    except Exception as exc:
        logger.warning("Failed to read HEARTBEAT.md at %s: %s", hb_path, exc)
        return
    if "## [SableCrest]" in content:
        return
    new_content = content
    if content and not content.endswith("\n"):
        new_content += "\n"
    new_content += "\n" + _HEARTBEAT_STATIC_SECTION
    try:
        with open(hb_path, "w", encoding="utf-8") as f:
            f.write(new_content)
    except Exception as exc:
        logger.warning("Failed to write HEARTBEAT.md at %s: %s", hb_path, exc)


def update_nudge(trigger, **context):
    """Called by search_templates when nudge trigger conditions are met.

    Triggers: discovery_rate_declining, era_change, first_signal, 10_signals, strategy_unlock.
    """
    if not _config.get("auto_heartbeat", True):
        return
    if trigger not in _NUDGE_TEXTS:
        return
    nudge_text = _NUDGE_TEXTS[trigger]
    try:
        hb_path = _find_heartbeat()
        if hb_path is None:
            return
        with open(hb_path, "r", encoding="utf-8") as f:
            content = f.read()
        if nudge_text in content:
            return
        if not content.endswith("\n"):
            content += "\n"
        content += nudge_text + "\n"
        with open(hb_path, "w", encoding="utf-8") as f:
            f.write(content)
    except Exception as exc:
        logger.warning("update_nudge failed: %s", exc)


def get_agents_md_fragment():
    """Returns ready-made AGENTS.md fragment for Pinwheel workspace setup."""
    return _AGENTS_MD_FRAGMENT
