# The types of sablecrest.agent_onboarding, in the order in which importing it binds the names.
#
# A comment above a definition says what its type and its docstring do not. What is said to be raised comes from the
# function itself; errors of the file system, of values of another type and of the package's other modules pass through.

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
from typing import Any, Final, Protocol, TypedDict, Unpack, type_check_only
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

# What `_fetch_eras_payload` asks of a session.
@type_check_only
class _HasToken(Protocol):
    def get_token(self) -> str | None: ...

# The options of `configure`.
@type_check_only
class _Options(TypedDict, total=False):
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

# The exception and its explicit causes, at most four links, as "RuntimeError: text; caused by OSError: text". A link's
# `diagnostic_detail` is added where it has one, and equal links are listed once.
def _exception_chain_detail(exc: BaseException | None) -> str: ...

# Copies of runtime modules

# 64 hexadecimal digits in lower case.
def _sha256_file(path: str) -> str: ...

# The path of ".sablecrest-runtime-NAME-DIGEST.so", with the first 16 digits of the digest, in the folder of the real
# path. Where it is missing it is made, as a hard link or else as a copy; where it exists it is trusted by its name.
def _content_addressed_extension_path(module_name: str, path: str, digest: str) -> str: ...

# Keeps the copy in use and those modified last, `max_copies` in all. What cannot be listed or removed stays.
def _prune_runtime_extension_copies(module_name: str, keep_path: str, *, max_copies: int = 2) -> None: ...

# Executes the file's copy and registers the module in `sys.modules`, with its digest in `_sablecrest_module_sha256` and
# the file's real path in `_sablecrest_module_source_path`. A module that is registered from the same copy with the same
# digest is returned as it is. Raises RuntimeError without an import spec. What the execution raises passes through; an
# Exception first puts the earlier registration back.
def _load_extension_from_path(module_name: str, path: str) -> ModuleType: ...

# Older names of the package

# Makes `src` a package that finds the modules of `sablecrest`, and calls `_ensure_legacy_src_obfuscation_core_alias`.
# Does nothing where the package cannot be imported.
def _ensure_legacy_src_namespace_alias() -> None: ...

# The package that is registered or can be imported under the name, otherwise a new, empty one. It becomes an attribute
# of its parent where that is registered.
def _ensure_package_module(name: str) -> ModuleType: ...

# The parts with dots between them.
def _legacy_src_module_name(*parts: str) -> str: ...

# Registers `src.obfuscation.layers.shared._core`, whose `era_salt(market_id, era_number)` and
# `era_number_identity_salt` return 16 bytes: both numbers, big-endian. They raise TypeError for what is not an int,
# ValueError below 1, OverflowError from 2**64 on.
def _ensure_legacy_src_obfuscation_core_alias(src_module: ModuleType) -> None: ...

# Runtime manifest

# The manifest's own dict from path to entry; a new one where it has none.
def _manifest_files(manifest: _Manifest | None) -> dict[str, Any]: ...

# `era_number`, `version` and `files` as `manifest.json` has them; None, None and {} where it does not. Raises
# RuntimeModuleDownloadIncomplete without the file, ValueError when it is not JSON, AttributeError when it is not an
# object.
def _read_manifest(data_dir: str) -> SimpleNamespace: ...

# Module name, path and entry of each runtime module for this platform, in the order of the paths. Lazy: the manifest is
# read by the first `next`.
def _runtime_module_manifest_entries(manifest: _Manifest | None) -> Iterator[tuple[str, str, dict[str, Any]]]: ...

# Path and entry of the module. An entry named "vault" answers for "era_data" as well.
def _select_runtime_module_manifest_entry(
    manifest: _Manifest | None, module_name: str
) -> tuple[str, dict[str, Any]] | tuple[None, None]: ...

# Verified loading

# The digest defaults to that of the manifest's entry, the manifest to the one on disk; without any digest the file is
# loaded unchecked. Raises RuntimeModuleReloadFailed when the interpreter is not CPython 3.12 or the load fails,
# RuntimeModuleDownloadIncomplete when the module is not listed or its file is missing, RuntimeModuleHashMismatch when
# the file or the module has another digest.
def _load_manifest_runtime_module(
    data_dir: str, module_name: str, *, expected_sha256: str | None = None, manifest: _Manifest | None = None
) -> ModuleType: ...

# Every runtime module for this platform by its name: `era_data` first, then in the order of the names. Ends with the
# first error; what was loaded before it stays loaded.
def _load_runtime_modules_from_manifest(data_dir: str, manifest: _Manifest | None) -> dict[str, ModuleType]: ...

# A guard that loads the runtime modules of this directory, each by the manifest that is on disk at that moment. Nothing
# is read until it is asked.
def create_runtime_freshness_guard(data_dir: str) -> RuntimeFreshnessGuard: ...

# Backtester

_BACKTEST_MODULE_NAMES: Final[tuple[str, str, str]]
_BACKTEST_PARENT_MODULE_NAMES: Final[tuple[str, str, str]]

# Takes the modules out of `sys.modules`, and their attributes off their parents.
def _forget_preloaded_backtester_modules() -> None: ...

# Whether the exception is about the module itself or a package above it, and not about something that it needs.
def _module_not_found_is_candidate(exc: ModuleNotFoundError, module_name: str) -> bool: ...

# The first of `_BACKTEST_MODULE_NAMES` that can be imported. Raises ModuleNotFoundError when none can.
def _import_backtester_module() -> ModuleType: ...

# Imported afresh, with the real path of the data directory in `sys.path`.
def _load_per_era_backtester(data_dir: str, **kwargs: object) -> ModuleType: ...

# Result records

@dataclass
class WalletRegistration:
    address: str  # of the agent's wallet, as the authentication manager gives it

@dataclass
class AuthToken:
    token: str = field(repr=False)  # the bearer token
    expires_at: float  # in seconds since the epoch
    def __repr__(self) -> str: ...

# Options and session

# The options in force, for the whole process, and "_settings_path": the absolute path of the settings file that was
# read last, None before that.
_config: dict[str, Any]

# The session of the last successful `register` or `login`.
_auth_manager: auth.AuthManager | None

# What `configure` accepts for each option.
_VALID_OPTIONS: Final[dict[str, type | tuple[type, ...]]]

# Options that `configure` also writes to the rotation settings.
_ROTATION_SETTING_OPTIONS: Final[set[str]]

# "int", "str or PathLike"
def _expected_type_name(expected_type: type | tuple[type, ...]) -> str: ...

# Texts of the workspace

# The checklist that `inject_heartbeat` appends.
_HEARTBEAT_STATIC_SECTION: Final[str]

# The line for each trigger of `update_nudge`.
_NUDGE_TEXTS: Final[dict[str, str]]
_AGENTS_MD_FRAGMENT: Final[str]

def _find_heartbeat(working_dir: str | None = None) -> str | None: ...

# Key and invite code

# A prefix 0X stays as it is; the rest is not looked at.
def _normalize_key(raw_key: str) -> str: ...

# The argument, else the option. Raises ValueError where neither gives a code.
def _resolve_invite_code(invite_code: str | None) -> str: ...
def _resolve_optional_invite_code(invite_code: str | None) -> str | None: ...

# Eras and named universes

# The text of the value without surrounding blanks, None where that is not one safe path segment.
def _safe_named_universe(value: object) -> str | None: ...

# The option, else the option `server_url`, else `DEFAULT_SERVER_URL`.
def _configured_signal_service_url() -> str: ...

# The JSON object that the signal service answers to GET /eras; it has 15 seconds for each socket operation. Raises
# RuntimeError without a token, when the service cannot be reached, and for an answer that is no such object,
# UnicodeDecodeError for one that is no text.
def _fetch_eras_payload(am: _HasToken) -> dict[str, Any]: ...

# An unsafe name, or one that is in the list, is not appended.
def _append_unique_named_universe(values: list[str], value: object) -> None: ...

# `raw` is a list of names or one name.
def _append_allowed_named_universes(values: list[str], raw: object) -> None: ...

# The safe names of an era as the service describes it: `named_universe`, `allowed_named_universes`, those of its
# `signal_pools`, `universes`.
def _active_era_named_universe_candidates(era: dict[str, Any]) -> list[str]: ...

# The first safe name of an era configuration: the pools' come first, `named_universe` last. None for what is no dict.
def _first_allowed_named_universe_from_era_config(era_config: object) -> str | None: ...

# The configured universe, otherwise the first of the market's active era, or of its first era where none is active;
# then the options `named_universe` and `named_universes` are set. Raises RuntimeError where the service gives none,
# TypeError or ValueError when it is asked without a market id.
def _resolve_active_named_universe(am: _HasToken) -> str: ...

# Data directory and settings file

# Absolute, and nothing is created. None stands for the directory that the settings select.
def _canonical_data_dir(data_dir: _StrPath | None) -> str: ...

# The file's URLs and data directory count where the option still has its default; its market id, its invite code, even
# an empty one, and its sync limits always.
def _apply_file_settings(settings_path: _StrPath | None = None) -> None: ...

# Wallet key file

def _wallet_key_path(data_dir: _StrPath | None) -> str: ...

# The exception is returned, not raised.
def _unsafe_wallet_error(path: str) -> OSError: ...

# Permissions of group and others are taken away. Raises OSError unless it is a regular file of this user.
def _check_wallet_fd(wallet_path: str, fd: int) -> None: ...

# The text without surrounding blanks, None where there is no file. Raises OSError for an unsafe or unreadable one.
def _read_wallet_key(data_dir: _StrPath | None) -> str | None: ...

# The text is written as it is; the directory is made. Raises OSError for an unsafe file and for a failed write.
def _write_wallet_key(data_dir: _StrPath | None, key_content: str) -> None: ...

# Local runtime

# Serves the manifest that it was given and never syncs.
class _LocalRuntimeSyncManager:
    _manifest: _Manifest
    _vocabulary: dict[str, Any]  # stays empty
    runtime_freshness_guard: RuntimeFreshnessGuard | None
    def __init__(self, manifest: _Manifest, runtime_freshness_guard: RuntimeFreshnessGuard | None = None) -> None: ...
    def get_manifest(self) -> _Manifest: ...  # the object itself
    def acquire(self) -> None: ...  # at once, without a lock
    def release(self) -> None: ...
    def request_for_sync(self) -> list[Any]: ...  # a new, empty list: nothing needs syncing
    def register_era_callback(self, callback: object) -> None: ...  # neither kept nor called
    def unregister_era_callback(self, callback: object) -> None: ...

# None where the path is empty or nothing is there. Raises ValueError when the file is not JSON.
def _read_json_if_present(path: _StrPath | None) -> Any: ...

# As `sablecrest._runtime` reads it.
def _read_manifest_payload_with_signals_index(data_dir: str) -> dict[str, Any]: ...

# A copy of the section; an empty dict where it is no dict.
def _manifest_payload_mapping_or_empty(manifest_payload: Mapping[str, Any], section: str) -> dict[str, Any]: ...

# The path of `features/UNIVERSE/vocabulary.json`, None where there is no such file.
def _local_vocabulary_path(data_dir: str, named_universe: str | None) -> str | None: ...

# The runtime, built from the options and the files of the data directory. Raises what keeps it from being built, except
# for the batch helpers, whose failure is logged as a warning.
def _bootstrap_local_runtime_from_config(am: auth.AuthManager) -> LibraryRuntime: ...

# Bring-up of the search runtime

# With `strict` a step that fails raises RuntimeError, without it is logged and the rest goes on.
# `sync_backoff.SyncBackoffCancelled` passes through either way.
def _propagate_auth(am: auth.AuthManager, strict: bool = False) -> None: ...
def ensure_runtime_bootstrapped(strict: bool = True) -> None: ...

# Registration, login and configuration

def register(
    invite_code: str | None = None,
    data_dir: str | None = None,
    market_id: int | None = None,
    bootstrap_runtime: bool = False,
    settings_path: str | None = None,
) -> WalletRegistration: ...
def login(private_key: str, bootstrap_runtime: bool = False, settings_path: str | None = None) -> AuthToken: ...
def configure(**kwargs: Unpack[_Options]) -> None: ...

# Workspace

def inject_heartbeat(working_dir: str | None = None) -> None: ...
def update_nudge(trigger: str, **context: object) -> None: ...
def get_agents_md_fragment() -> str: ...
