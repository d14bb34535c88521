"""The simulator: the backtester and the batch helpers of a search."""

from typing import Any

#: What the backtester reads prices from; it binds the vault when it is imported, so the vault is set before that.
vault: Any = None
