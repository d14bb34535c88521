"""Runtime modules: how a manifest names them, what they must satisfy, and how loaded ones are kept current.

A manifest entry of kind "runtime_module:NAME" is the extension module NAME; kind "runtime_module" alone takes the name
from the file, so that "era_data.cpython-312-x86_64-linux-gnu.so" is `era_data`.
"""

import json
import os
import sys
from collections.abc import Callable
from types import ModuleType

from sablecrest.errors import RuntimeModuleReloadFailed
from sablecrest.sync import CURRENT_PLATFORM

_KIND = "runtime_module"
_EXTENSION_SUFFIXES = (".so", ".pyd")


def is_runtime_module_kind(kind: str) -> bool:
    """Whether a manifest entry of this kind is a runtime extension module."""
    return kind == _KIND or kind.startswith(_KIND + ":")


def runtime_module_name_from_kind(kind: str, relative_path: str) -> str | None:
    """The name under which the entry's module is imported, None when it has no usable one."""
    name = kind.partition(":")[2] or os.path.basename(relative_path).partition(".")[0]
    return name if name.isidentifier() else None


def validate_synced_runtime_module_contract(
    *, module_name: str, relative_path: str, file_info: dict, local_path: str
) -> None:
    """Raise RuntimeModuleReloadFailed for a file that must not be executed, whatever its digest.

    The path has to stay inside the data directory, the file has to be a regular extension module of the size that the
    entry states, if it states one, and the entry has to name this module ("vault" is the older name of `era_data`).
    """
    entry_name = runtime_module_name_from_kind(str(file_info.get("kind", "")), relative_path)
    names = {module_name, "vault"} if module_name == "era_data" else {module_name}
    if os.path.isabs(relative_path) or ".." in relative_path.replace("\\", "/").split("/"):
        problem = "its path leaves the data directory"
    elif not os.path.isfile(local_path) or not relative_path.endswith(_EXTENSION_SUFFIXES):
        problem = "it is not an extension module file"
    elif file_info.get("size", os.path.getsize(local_path)) != os.path.getsize(local_path):
        problem = "its size is not the size that the manifest states"
    elif entry_name not in names:
        problem = f"the manifest entry is for {entry_name!r}"
    else:
        return
    raise RuntimeModuleReloadFailed(
        f"Runtime module {module_name!r} at {relative_path} breaks its contract: {problem}.",
        module_name=module_name,
        relative_path=relative_path,
        expected_sha256=file_info.get("sha256"),
    )


class RuntimeFreshnessGuard:
    """Reloads runtime modules whose expected digest has changed and hands the new ones to their consumers."""

    def __init__(self, *, data_dir: str, module_loader: Callable[[str, str], ModuleType]):
        """`module_loader(module_name, expected_sha256)` returns the loaded module; its errors pass through."""
        self._data_dir = data_dir
        self._module_loader = module_loader
        self._consumers: list[tuple[str, object, str]] = []

    def register_module_consumer(self, module_name: str, consumer: object, attribute_name: str) -> None:
        """From now on, every reload of `module_name` sets `attribute_name` of `consumer` to the new module."""
        self._consumers.append((module_name, consumer, attribute_name))

    def ensure_fresh(self) -> list[str]:
        """Reload what the manifest on disk now expects to be different; returns the names of the reloaded modules.

        A module is current when it carries the digest that the manifest expects. Entries without a digest are left
        alone, as is everything when there is no manifest.
        """
        reloaded = []
        for name, expected_sha256 in self._expected_digests().items():
            if getattr(sys.modules.get(name), "_sablecrest_module_sha256", None) == expected_sha256:
                continue
            module = self._module_loader(name, expected_sha256)
            for consumed, consumer, attribute_name in self._consumers:
                if consumed == name:
                    setattr(consumer, attribute_name, module)
            reloaded.append(name)
        return reloaded

    def _expected_digests(self) -> dict[str, str]:
        try:
            with open(os.path.join(self._data_dir, "manifest.json"), "rb") as file:
                files = json.load(file).get("files") or {}
        except FileNotFoundError:
            return {}
        digests: dict[str, str] = {}
        for relative_path, entry in sorted(files.items()):
            if not isinstance(entry, dict):
                continue
            kind = str(entry.get("kind", ""))
            here = entry.get("platform") in (None, "", CURRENT_PLATFORM)
            if is_runtime_module_kind(kind) and here and entry.get("sha256"):
                name = runtime_module_name_from_kind(kind, relative_path)
                if name:
                    digests.setdefault(name, entry["sha256"])
        return digests
