"""The rotation settings of a data directory: which part of the catalog an agent searches, and when it moves on."""

import json
import os
import tempfile
from pathlib import Path


class RotationSettings:
    """Rotation settings as read from their file."""

    def __init__(self, values: dict):
        self._values = values

    def model_dump(self) -> dict:
        """A new dict of the settings, in the file's order."""
        return dict(self._values)


def settings_path_for_data_dir(data_dir: str | os.PathLike) -> Path:
    """Where the rotation settings of `data_dir` are kept; the file need not exist."""
    return Path(data_dir, "rotation_settings.json")


def load_rotation_settings(data_dir: str | os.PathLike, catalog_context: dict | None = None) -> RotationSettings:
    """The stored settings; market and universes come from `catalog_context` where the file leaves them empty.

    Raises FileNotFoundError without a file, ValueError when it does not hold a JSON object.
    """
    path = settings_path_for_data_dir(data_dir)
    values = json.loads(path.read_bytes())
    if not isinstance(values, dict):
        raise ValueError(f"Rotation settings {path} must hold a JSON object.")
    for key in ("market", "named_universes"):
        if not values.get(key) and catalog_context and key in catalog_context:
            values[key] = catalog_context[key]
    return RotationSettings(values)


def write_rotation_settings(data_dir: str | os.PathLike, settings: dict) -> None:
    """Replace the stored settings in one step: a reader sees the old file or the new one, never a part.

    Raises TypeError or ValueError when the settings are not JSON, OSError when they cannot be written.
    """
    text = json.dumps(settings, indent=2, allow_nan=False) + "\n"
    descriptor, temporary = tempfile.mkstemp(dir=data_dir, prefix=".rotation_settings-")
    try:
        with open(descriptor, "w", encoding="utf-8") as file:
            file.write(text)
        os.replace(temporary, settings_path_for_data_dir(data_dir))
    except BaseException:
        os.unlink(temporary)
        raise
