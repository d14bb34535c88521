"""The epochs into which an era's data are divided."""

from enum import Enum


class EpochName(str, Enum):
    """Name of an epoch; its value is the epoch's folder under a universe's feature folder."""

    SIGNAL_IS = "signal_is"
    SIGNAL_OS = "signal_os"
    STRATEGY_IS = "strategy_is"
    STRATEGY_OS = "strategy_os"
