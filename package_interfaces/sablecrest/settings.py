"""The user's settings file, a YAML mapping, and the data directory that it selects."""

import os

_HOME = os.path.join(os.path.expanduser("~"), ".sablecrest")

#: The data directory of users who choose none.
DATA_DIR = os.path.join(_HOME, "data")

_SYNC_DEFAULTS = {
    "sync_http_transport": "auto",
    "sync_http_chunk_bytes": 64 * 1024 * 1024,
    "sync_max_concurrency": 8,
}


def default_settings_path() -> str:
    """The settings file that is read when none is named."""
    return os.path.join(_HOME, "settings.yaml")


def load_settings(settings_path: str | os.PathLike | None, ensure: bool = False) -> dict:
    """The file's settings, with the three sync settings filled in where the file lacks them.

    A missing or empty file holds no settings; `ensure` creates a missing one. Raises ValueError when the file is not
    YAML or not a mapping, OSError when it cannot be read.
    """
    path = os.path.expanduser(os.fspath(settings_path or default_settings_path()))
    if os.path.exists(path):
        settings = _read_mapping(path)
    else:
        settings = {}
        if ensure:
            os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
            open(path, "x", encoding="utf-8").close()
    return _SYNC_DEFAULTS | settings


def _read_mapping(path: str) -> dict:
    import yaml  # only who has a settings file pays for the parser

    with open(path, "rb") as file:
        try:
            settings = yaml.safe_load(file)
        except yaml.YAMLError as error:
            raise ValueError(f"Settings file {path} is not valid YAML.") from error
    if settings is None:
        return {}
    if not isinstance(settings, dict):
        raise ValueError(f"Settings file {path} must hold a mapping, not a {type(settings).__name__}.")
    return settings


def resolve_data_dir(
    data_dir: str | os.PathLike | None = None,
    *,
    settings_path: str | os.PathLike | None = None,
    ensure: bool = False,
) -> str:
    """The real, absolute path of `data_dir`, or of the settings file's `data_dir`, or of DATA_DIR.

    `ensure` creates it. Raises what `load_settings` raises when the settings file has to be asked.
    """
    if data_dir is None:
        data_dir = load_settings(settings_path).get("data_dir") or DATA_DIR
    path = os.path.realpath(os.path.expanduser(os.fspath(data_dir)))
    if ensure:
        os.makedirs(path, exist_ok=True)
    return path
