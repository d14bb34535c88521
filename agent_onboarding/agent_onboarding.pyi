# The types and docstrings of sablecrest.agent_onboarding, in the order in which importing it binds the names.
#
# What a docstring says to be raised comes from the function itself. Errors of the file system, of values of another
# type and of the package's other modules pass through, unless it says otherwise.

import hashlib as hashlib
import importlib as importlib
import json as json
import logging as logging
import os as os
import secrets as secrets
import shutil as shutil
import stat as _stat  # noqa: F401
import sys as sys
import types as types
import urllib as urllib
from collections.abc import Iterator, Mapping
from dataclasses import dataclass as dataclass
from dataclasses import field as field
from os import PathLike
from types import ModuleType
from types import SimpleNamespace as SimpleNamespace
from typing import Any, Final, Protocol, SupportsIndex, SupportsInt, TypedDict, Unpack, type_check_only
from typing import List as List  # noqa: UP035
from typing import Optional as Optional

from sablecrest import auth as auth
from sablecrest._runtime import LibraryRuntime
from sablecrest.era_config import EpochName as EpochName
from sablecrest.errors import RuntimeModuleDownloadIncomplete as RuntimeModuleDownloadIncomplete
from sablecrest.errors import RuntimeModuleHashMismatch as RuntimeModuleHashMismatch
from sablecrest.errors import RuntimeModuleReloadFailed as RuntimeModuleReloadFailed
from sablecrest.runtime_module_freshness import RuntimeFreshnessGuard as RuntimeFreshnessGuard
from sablecrest.runtime_module_freshness import is_runtime_module_kind as is_runtime_module_kind
from sablecrest.runtime_module_freshness import runtime_module_name_from_kind as runtime_module_name_from_kind
from sablecrest.runtime_module_freshness import (
    validate_synced_runtime_module_contract as validate_synced_runtime_module_contract,
)
from sablecrest.settings import DATA_DIR as DATA_DIR
from sablecrest.settings import default_settings_path as default_settings_path
from sablecrest.settings import load_settings as load_settings
from sablecrest.settings import resolve_data_dir as resolve_data_dir
from sablecrest.skills import list_skills as list_skills
from sablecrest.sync import CURRENT_PLATFORM as CURRENT_PLATFORM

# Types of arguments

type _StrPath = str | PathLike[str]

# `manifest.json`: what `_read_manifest` returns, or the JSON object itself.
type _Manifest = SimpleNamespace | dict[str, Any]

@type_check_only
class _HasToken(Protocol):
    """What `_fetch_eras_payload` asks of a session."""
    def get_token(self) -> str | None:
        """The bearer token, None without a session."""

@type_check_only
class _Options(TypedDict, total=False):
    """The options of `configure`."""

    auto_heartbeat: bool
    data_dir: _StrPath  # not empty
    server_url: str
    signal_service_url: str
    invite_code: str | None
    sync_http_transport: str
    sync_http_chunk_bytes: int  # bytes
    sync_max_concurrency: int
    named_universe: str  # one safe path segment
    market_id: int  # 1 or more
    feature_budget_gb: int | float  # gigabytes
    market: str
    named_universes: list[str]
    algorithm: str
    family: str
    subfamily: str
    rotation_frequency: str
    rotation_seed: int

# Logger and server

# Named "sablecrest.agent_onboarding"; every record of the module goes through it.
logger: logging.Logger
DEFAULT_SERVER_URL: Final = "https://api.sablecrest.example"

# Error details

def _exception_chain_detail(exc: BaseException | None) -> str:
    """The exception and its explicit causes, at most four, as "RuntimeError: text; caused by OSError: text".

    A link's `diagnostic_detail` is added where it has one, and equal links are listed once.
    """

# Copies of runtime modules

def _sha256_file(path: _StrPath) -> str:
    """The SHA-256 digest of the file's bytes: 64 hexadecimal digits in lower case."""

def _content_addressed_extension_path(module_name: str, path: _StrPath, digest: str) -> str:
    """The path of the module's copy, `.sablecrest-runtime-NAME-DIGEST.so`, beside the file that `path` leads to.

    DIGEST is the first 16 digits of `digest`. Where there is no copy it is made, as a hard link or else by copying; one
    that exists is trusted by its name.
    """

def _prune_runtime_extension_copies(module_name: str, keep_path: _StrPath, *, max_copies: int = 2) -> None:
    """Remove copies of the module but for `max_copies`: the one at `keep_path` and those modified last.

    A folder that cannot be listed and a copy that cannot be removed stay as they are.
    """

def _load_extension_from_path(module_name: str, path: _StrPath) -> ModuleType:
    """Execute the file's copy and register the module in `sys.modules`. The digest is not compared with anything.

    The module gets the file's digest as `_sablecrest_module_sha256` and its real path as
    `_sablecrest_module_source_path`. A module that is registered from the same copy with the same digest is returned as
    it is. Raises RuntimeError without an import spec. What executing raises passes through; an Exception first puts the
    earlier registration back.
    """

# Older names of the package

def _ensure_legacy_src_namespace_alias() -> None:
    """Make `src` a package that finds the modules of `sablecrest`, and make its legacy core module.

    Does nothing where the package cannot be imported.
    """

def _ensure_package_module(name: str) -> ModuleType:
    """The package that is registered or can be imported under the name, otherwise a new, empty one.

    It becomes an attribute of its parent where that is registered.
    """

def _legacy_src_module_name(*parts: str) -> str:
    """The parts with dots between them."""

def _ensure_legacy_src_obfuscation_core_alias(src_module: ModuleType) -> None:
    """Register `src.obfuscation.layers.shared._core` and the packages above it.

    Its functions `era_salt(market_id, era_number)` and `era_number_identity_salt` return 16 bytes: both numbers,
    big-endian. They raise TypeError for what is not an int, ValueError below 1, OverflowError from 2**64 on.
    """

# Runtime manifest

def _manifest_files(manifest: _Manifest | None) -> dict[str, Any]:
    """The manifest's own dict from path to entry; a new one where it has none."""

def _read_manifest(data_dir: _StrPath) -> SimpleNamespace:
    """`era_number`, `version` and `files` as `manifest.json` has them; None, None and {} where it does not.

    Raises RuntimeModuleDownloadIncomplete without the file, ValueError when it is not JSON in UTF-8, AttributeError
    when it is not an object.
    """

def _runtime_module_manifest_entries(manifest: _Manifest | None) -> Iterator[tuple[str, str, dict[str, Any]]]:
    """Module name, path and entry of each runtime module for this platform, in the order of the paths.

    Lazy: the manifest is read by the first `next`.
    """

def _select_runtime_module_manifest_entry(
    manifest: _Manifest | None, module_name: str
) -> tuple[str, dict[str, Any]] | tuple[None, None]:
    """Path and entry of the module, two None without one. An entry named "vault" answers for "era_data" as well."""

# Verified loading

def _load_manifest_runtime_module(
    data_dir: _StrPath, module_name: str, *, expected_sha256: str | None = None, manifest: _Manifest | None = None
) -> ModuleType:
    """Load a runtime module whose file has the expected digest, by default that of its entry in the manifest.

    Without any digest the file is loaded unchecked. `manifest` is by default the one on disk.

    Raises RuntimeModuleReloadFailed when the interpreter is not CPython 3.12, when the file breaks its contract (path,
    size, kind) or when loading it fails, RuntimeModuleDownloadIncomplete when the manifest or the file is missing or
    the manifest does not list the module, RuntimeModuleHashMismatch when the file has another digest before the load,
    which then does not begin, or after it.
    """

def _load_runtime_modules_from_manifest(data_dir: _StrPath, manifest: _Manifest | None) -> dict[str, ModuleType]:
    """Load every runtime module for this platform, `era_data` first, then in the order of the names.

    Returns them by name, in the order of loading. Ends with the first error; what was loaded before it stays loaded.
    """

def create_runtime_freshness_guard(data_dir: _StrPath) -> RuntimeFreshnessGuard:
    """A guard that keeps the runtime modules of a data directory at the digests of its manifest.

    Making it reads nothing. Its `ensure_fresh()` loads each runtime module whose digest in `manifest.json` is not that
    of the module in use, hands it to the consumers that were registered with
    `register_module_consumer(module_name, consumer, attribute_name)`, and returns the names of what it loaded. It
    raises RuntimeModuleDownloadIncomplete for a missing file, RuntimeModuleHashMismatch for other bytes than the
    manifest names, and RuntimeModuleReloadFailed when the interpreter is not CPython 3.12, when a module breaks its
    contract or cannot be loaded, all of `sablecrest.errors`; and ValueError for a manifest that is not JSON.

    Args:
        data_dir: The folder of `manifest.json` and the runtime modules. Give it without `~`: the guard looks for the
            manifest at the path as it is.
    """

# Backtester

_BACKTEST_MODULE_NAMES: Final[tuple[str, str, str]]
_BACKTEST_PARENT_MODULE_NAMES: Final[tuple[str, str, str]]

def _forget_preloaded_backtester_modules() -> None:
    """Take the backtester's modules out of `sys.modules`, and their attributes off their parents."""

def _module_not_found_is_candidate(exc: ModuleNotFoundError, module_name: str) -> bool:
    """Whether the exception is about the module itself or a package above it, and not about something that it needs."""

def _import_backtester_module() -> ModuleType:
    """The first of `_BACKTEST_MODULE_NAMES` that can be imported. Raises ModuleNotFoundError when none can."""

def _load_per_era_backtester(data_dir: _StrPath, **kwargs: object) -> ModuleType:
    """Load the wheel-bundled canonical backtester.

    It is imported afresh, with the real path of the data directory in `sys.path`. Other keyword arguments are ignored.
    """

# Result records

@dataclass
class WalletRegistration:
    """Returned by register() on successful wallet creation/re-auth."""

    address: str
    """The agent's wallet address, as the authentication manager gives it: "0x" and 40 hexadecimal digits."""

@dataclass
class AuthToken:
    """Returned by login() on successful authentication.

    Its representation shows the token as <redacted>. Comparing, pickling and `dataclasses.asdict` use the token.
    """

    token: str = field(repr=False)
    """The bearer token, as the service issued it."""
    expires_at: float
    """When the token expires, as the service states it, in seconds since the epoch."""
    def __repr__(self) -> str:
        """AuthToken(token='<redacted>', expires_at=...)"""

# Options and session

# The options in force, for the whole process, and "_settings_path": the absolute path of the settings file that was
# read last, None before that.
_config: dict[str, Any]

# The session of the last successful `register` or `login`, None before that.
_auth_manager: auth.AuthManager | None

# What `configure` accepts for each option.
_VALID_OPTIONS: Final[dict[str, type | tuple[type, ...]]]

# Options that `configure` also writes to the rotation settings.
_ROTATION_SETTING_OPTIONS: Final[set[str]]

def _expected_type_name(expected_type: type | tuple[type, ...]) -> str:
    """The name of the type, or the names of the types: "int", "str or PathLike"."""

# Texts of the workspace

# The checklist that `inject_heartbeat` appends.
_HEARTBEAT_STATIC_SECTION: Final[str]

# The line for each trigger of `update_nudge`.
_NUDGE_TEXTS: Final[dict[str, str]]
_AGENTS_MD_FRAGMENT: Final[str]

def _find_heartbeat(working_dir: _StrPath | None = None) -> str | None:
    """Search for HEARTBEAT.md in cwd + up to 3 parent directories.

    The search begins at `working_dir` where it is given. Returns the path of the first one, None without any.
    """

# Key and invite code

def _normalize_key(raw_key: str) -> str:
    """Ensure private key has 0x prefix for AuthManager.

    A prefix 0X stays as it is; the rest is not looked at.
    """

def _resolve_invite_code(invite_code: str | None) -> str:
    """Return canonical invite code from argument/settings before AuthManager creation.

    The argument, where it is None the option `invite_code`, without surrounding blanks. Raises ValueError where that
    leaves no code.
    """

def _resolve_optional_invite_code(invite_code: str | None) -> str | None:
    """Return canonical explicit invite code for existing-wallet re-auth, or None."""

# Eras and named universes

def _safe_named_universe(value: object) -> str | None:
    """The text of the value without surrounding blanks, None where that is not one safe path segment."""

def _configured_signal_service_url() -> str:
    """The option `signal_service_url`, else the option `server_url`, else `DEFAULT_SERVER_URL`."""

def _fetch_eras_payload(am: _HasToken) -> dict[str, Any]:
    """The JSON object that the signal service answers to GET /eras.

    Each socket operation may take 15 seconds. Raises RuntimeError without a token, when the exchange fails, and for
    another status than 200 or an answer that is no JSON object.
    """

def _append_unique_named_universe(values: list[str], value: object) -> None:
    """Append the value's safe name to the list, unless there is none or the list has it."""

def _append_allowed_named_universes(values: list[str], raw: object) -> None:
    """Append the safe names of `raw`, a list of names or one name, that the list does not have."""

def _active_era_named_universe_candidates(era: dict[str, Any]) -> list[str]:
    """The safe names of an era as the service describes it, without duplicates.

    In the order of `named_universe`, `allowed_named_universes`, those of its `signal_pools`, `universes`.
    """

def _first_allowed_named_universe_from_era_config(era_config: object) -> str | None:
    """The first safe name of an era configuration: the pools' come first, `named_universe` last.

    None without one, and for what is no dict.
    """

def _resolve_active_named_universe(am: _HasToken) -> str:
    """The configured universe, otherwise the first that the service names for the market.

    It names them for the market's first active era, or for its first era where none is active; the options
    `named_universe` and `named_universes` are then set. Raises RuntimeError where the service gives none, TypeError or
    ValueError when it has to be asked and the market id is no number, AttributeError when the era is no object.
    """

# Data directory and settings file

def _canonical_data_dir(data_dir: _StrPath | None) -> str:
    """Return the expanded canonical data directory path.

    Absolute and without links; nothing is created. None stands for the directory that the default settings file
    selects.
    """

def _apply_file_settings(settings_path: _StrPath | None = None) -> None:
    """Load .sablecrest/settings.yaml and apply supported process settings.

    The file's URLs and data directory count where the option still has its default; its market id, its invite code,
    even an empty one, and its sync limits always.
    """

# Wallet key file

def _wallet_key_path(data_dir: _StrPath | None) -> str:
    """Return canonical wallet.key path under the canonical data directory."""

def _unsafe_wallet_error(path: _StrPath) -> OSError:
    """The exception for an unsafe wallet.key; it is returned, not raised."""

def _check_wallet_fd(wallet_path: _StrPath, fd: int) -> None:
    """Validate an opened wallet.key fd and tighten permissions.

    Permissions of group and others are taken away. Raises OSError unless it is a regular file of this user; where the
    system has no user ids, unless it is a regular file.
    """

def _read_wallet_key(data_dir: _StrPath | None) -> str | None:
    """Read existing wallet.key after symlink/type/owner/permission checks.

    Returns the text without surrounding blanks, None where there is no file. Raises OSError for an unsafe or unreadable
    file, UnicodeDecodeError for one that is no text in the locale's encoding.
    """

def _write_wallet_key(data_dir: _StrPath | None, key_content: str) -> None:
    """Write private key to wallet.key with 0600 permissions.

    The text is written as it is, in UTF-8, in the place of what the file held; the directory is made. Raises OSError
    for an unsafe file and for a failed write.
    """

# Local runtime

class _LocalRuntimeSyncManager:
    """Serves the manifest that it was given and never syncs."""

    _manifest: _Manifest
    _vocabulary: dict[str, Any]  # stays empty
    runtime_freshness_guard: RuntimeFreshnessGuard | None
    def __init__(self, manifest: _Manifest, runtime_freshness_guard: RuntimeFreshnessGuard | None = None) -> None: ...
    def get_manifest(self) -> _Manifest:
        """The manifest itself, not a copy."""
    def acquire(self) -> None:
        """Return at once; there is no lock."""
    def release(self) -> None:
        """Return at once; there is no lock."""
    def request_for_sync(self) -> list[Any]:
        """A new, empty list: nothing needs syncing."""
    def register_era_callback(self, callback: object) -> None:
        """Ignore the callback: the era never changes."""
    def unregister_era_callback(self, callback: object) -> None:
        """Ignore the callback."""

def _read_json_if_present(path: _StrPath | None) -> Any:
    """The file's JSON value, None where the path is empty or nothing is there; ValueError when it is not JSON."""

def _read_manifest_payload_with_signals_index(data_dir: _StrPath) -> dict[str, Any]:
    """The JSON object of `manifest.json` with the signals index, as `sablecrest._runtime` reads it."""

def _manifest_payload_mapping_or_empty(manifest_payload: Mapping[str, Any], section: str) -> dict[str, Any]:
    """A copy of the section; an empty dict where it is no dict."""

def _local_vocabulary_path(data_dir: _StrPath, named_universe: str | None) -> str | None:
    """The path of `features/UNIVERSE/vocabulary.json`, None where there is no such file."""

def _bootstrap_local_runtime_from_config(am: auth.AuthManager) -> LibraryRuntime:
    """The runtime, built from the options and the files of the data directory; the network is not used.

    Raises what keeps it from being built, except for the batch helpers, whose failure is logged as a warning.
    """

# Bring-up of the search runtime

def _propagate_auth(am: auth.AuthManager, strict: bool = False) -> None:
    """Set _auth and runtime singletons on search_templates and simulate_signal.

    With `strict` a step that fails raises RuntimeError; without it the failure is logged and the rest goes on.
    `sync_backoff.SyncBackoffCancelled` of the synchronisation passes through either way.
    """

def ensure_runtime_bootstrapped(strict: bool = True) -> None:
    """Bootstrap the shared SDK runtime from cached register/login auth.

    Chooses the named universe, builds the search runtime and hands it to `sablecrest.search_templates` and
    `sablecrest.simulate_signal`. The universe is the option `named_universe`; where that is not set, the first that the
    signal service names for the market (option `market_id`), which then becomes the option. The runtime is built from
    the files of the option `data_dir`, unless the package builds or keeps one of its own.

    Args:
        strict: Raise for each step that fails. Otherwise log it and go on with the rest.

    Raises:
        auth.AuthError: Nobody has registered or logged in yet.
        RuntimeError: The signal service gave no universe; with `strict`, a step failed.
        TypeError, ValueError: No universe is configured, and the option `market_id` is None or no number.
        AttributeError: The service's first era is no JSON object.
        sync_backoff.SyncBackoffCancelled: The user gave up the synchronisation.
        ImportError: A module of the package that this needs is missing.
    """

# Registration, login and configuration

def register(
    invite_code: str | None = None,
    data_dir: _StrPath | None = None,
    market_id: SupportsInt | SupportsIndex | str | None = None,
    bootstrap_runtime: bool = False,
    settings_path: _StrPath | None = None,
) -> WalletRegistration:
    """First-run or idempotent wallet registration.

    Where the data directory has a `wallet.key`, authenticates with that key; the file's text stays as it is. Otherwise
    makes a private key of 32 random bytes, has the service register its wallet, and then writes the key to `wallet.key`
    as 64 hexadecimal digits. The session becomes that of the process. The checklist is added to `HEARTBEAT.md` unless
    the option `auto_heartbeat` is off.

    Args:
        invite_code: The code that a new wallet is registered with; by default the option `invite_code`. With a
            `wallet.key` it is sent only where it is given here.
        data_dir: The folder of `wallet.key` and the runtime files, made where it is missing; by default the option
            `data_dir`. Its real path becomes the option.
        market_id: The market's number, 1 or more, as `int()` reads it. It becomes the option; None leaves that alone.
        bootstrap_runtime: Then choose the universe and bring up the search runtime, strictly, as
            `ensure_runtime_bootstrapped` does.
        settings_path: The settings file that is applied to the options first; by default ~/.sablecrest/settings.yaml.
            A file that is missing sets nothing.

    Returns:
        The wallet's address, as the authentication manager gives it.

    Raises:
        ValueError: There is no invite code for a new wallet, `wallet.key` holds no key, the market id is no number or,
            with `bootstrap_runtime`, missing or below 1, the settings file or its server URL is invalid. As
            UnicodeDecodeError: `wallet.key` is no text.
        TypeError: The market id is of a type that `int()` does not take.
        auth.RegistrationError: The service refused the wallet: its code is unknown or used. No key was stored.
        auth.AuthError: The service accepted the wallet, or knew it, but gave no session. A new key is stored.
        ConnectionError: The service cannot be reached. A wallet that it accepted just before is lost with its code.
        OSError: `wallet.key` is unsafe or cannot be read or written, the directory cannot be made, the settings cannot
            be read. A new wallet whose key cannot be written is lost with its code.
        Exception: With `bootstrap_runtime` also what `ensure_runtime_bootstrapped` raises. The agent is registered by
            then.
    """

def login(private_key: str, bootstrap_runtime: bool = False, settings_path: _StrPath | None = None) -> AuthToken:
    """Login for returning agents with existing private key.

    The key is first written to `wallet.key` in the option `data_dir`, as it is given and **in the place of any other**,
    and stays there when the service refuses it. The session becomes that of the process.

    Args:
        private_key: 64 hexadecimal digits, with or without 0x.
        bootstrap_runtime: Then bring up the search runtime for the configured universe, strictly; the service is not
            asked for one.
        settings_path: The settings file that is applied to the options first; by default ~/.sablecrest/settings.yaml.
            A file that is missing sets nothing.

    Returns:
        The session's token and its expiry in seconds since the epoch, both from the service.

    Raises:
        ValueError: The key is None or no such text, the settings file or its server URL is invalid.
        auth.AuthError: The service refused the key, or gave no session.
        ConnectionError: The service cannot be reached.
        OSError: `wallet.key` is unsafe or cannot be written, the directory cannot be made, the settings cannot be read.
        Exception: With `bootstrap_runtime` also what `ensure_runtime_bootstrapped` raises for a step. The agent is
            logged in by then.
    """

def configure(**kwargs: Unpack[_Options]) -> None:
    """Set library configuration options.

    They are checked and stored one by one, in the order of the call: when one is refused, those before it are stored.
    They hold for the whole process, until the settings file of a later `register` or `login` sets them: see each.

    Args:
        auto_heartbeat: `register`, `inject_heartbeat` and `update_nudge` extend `HEARTBEAT.md`; by default True.
        data_dir: The folder of `wallet.key` and the runtime files, not empty; by default ~/.sablecrest/data, which the
            settings file replaces.
        server_url: Base URL of the service, http or https; by default `DEFAULT_SERVER_URL`, which the settings file
            replaces.
        signal_service_url: Base URL of the signal service, not checked; by default that of the settings file, else the
            server URL.
        invite_code: The code that a new wallet is registered with; the settings file's goes first.
        sync_http_transport: How runtime files are downloaded; by default "auto". The settings file's, or its default,
            goes first, as for the next two.
        sync_http_chunk_bytes: Size of a downloaded piece, in bytes; by default 67108864.
        sync_max_concurrency: Downloads at a time; by default 8.
        named_universe: The part of the market's data to work on: one safe path segment, stored without surrounding
            blanks. By default chosen from the active era.
        market_id: The market's number, 1 or more; the settings file's goes first.
        feature_budget_gb: Disk space for feature data, in gigabytes.
        market: The market to search; by default "crypto".
        named_universes: The universes to search; by default the named universe alone.
        algorithm: The part of the catalog to search, with family and subfamily.
        family: See algorithm.
        subfamily: See algorithm.
        rotation_frequency: How often to move on in the catalog.
        rotation_seed: Seed of the order in which to move on; by default 0.

    The last eight are also written to the rotation settings of the data directory.

    Raises:
        ValueError: There is no such option, or its value is of another type, empty or out of bounds.
        TypeError: An argument was passed by position, or a rotation option is no JSON value.
        OSError: The rotation settings cannot be read or written. All options of the call are in force by then.
    """

# Workspace

def inject_heartbeat(working_dir: _StrPath | None = None) -> None:
    """Called by register() and search_templates during search startup.

    Appends the checklist to the first `HEARTBEAT.md` of the directory and its three nearest parents, unless the file
    has a heading "## [SableCrest]". The file is rewritten whole, as UTF-8 with the system's line ends. Creates no file,
    and does nothing when the option `auto_heartbeat` is off. A file that cannot be read or written is logged as a
    warning.

    Args:
        working_dir: Where the search begins; by default the current directory. The parents of a relative path end with
            the current directory.

    Raises:
        OSError: The current directory is asked for and gone.
    """

def update_nudge(trigger: str, **context: object) -> None:
    """Called by search_templates when nudge trigger conditions are met.

    Appends the trigger's line to the first `HEARTBEAT.md` of the current directory and its three nearest parents,
    unless the file has that line. Does nothing without such a file, and when the option `auto_heartbeat` is off. What
    fails is logged as a warning and not raised.

    Args:
        trigger: discovery_rate_declining, era_change, first_signal, 10_signals or strategy_unlock. Another is ignored.
        context: Ignored.
    """

def get_agents_md_fragment() -> str:
    """Returns ready-made AGENTS.md fragment for Pinwheel workspace setup.

    A heading and three list items in Markdown, to be pasted into the workspace's `AGENTS.md`.
    """
