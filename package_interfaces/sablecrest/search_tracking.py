"""The record of what an agent's searches have evaluated."""

import json
import os

from sablecrest.settings import load_settings


class SearchTracker:
    """Keeps one JSON line per evaluated expression in a file that outlives the process."""

    def __init__(self, data_dir: str, *, settings_path: str | None = None):
        """The file is `search_history_path` of the settings file, or search_history.jsonl in `data_dir`."""
        chosen = load_settings(settings_path).get("search_history_path")
        self.path = os.path.join(data_dir, os.path.expanduser(chosen or "search_history.jsonl"))

    def record(self, expression: str, result: dict) -> None:
        """Append a result; OSError when the file cannot be written."""
        with open(self.path, "a", encoding="utf-8") as file:
            file.write(json.dumps({"expression": expression, **result}) + "\n")

    def found_signals(self) -> set[str]:
        """The expressions whose latest result earned something."""
        if not os.path.exists(self.path):
            return set()
        with open(self.path, encoding="utf-8") as file:
            latest = {entry["expression"]: entry["pnl"] for entry in map(json.loads, file)}
        return {expression for expression, pnl in latest.items() if pnl > 0}
