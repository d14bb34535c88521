"""A local stand-in of the signal service over real HTTP: registration, authentication, `/eras` and broken answers."""

from local_service.faults import FAULTS
from local_service.service import LocalService

__all__ = ["FAULTS", "LocalService"]
