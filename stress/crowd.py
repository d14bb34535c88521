"""Lets a crowd of processes register with one known wallet at the same moment: the service must answer all of them."""

from pathlib import Path

from sablecrest import agent_onboarding
from support import HOME

from local_service import LocalService
from stress.child import STUCK, fork

PROCESSES = 128
all_ready = fork.Barrier(PROCESSES)


def register(_):
    """Waiting for all others, each process does it once."""
    all_ready.wait()
    return agent_onboarding.register().address


def main():
    key = Path(HOME.name, "wallet.key")
    with LocalService(["CODE"]) as service:
        agent_onboarding.configure(server_url=service.url, data_dir=HOME.name, auto_heartbeat=False)
        expected, kept = {agent_onboarding.register("CODE").address}, key.read_text()
        with fork.Pool(PROCESSES) as pool:
            addresses = {*pool.map_async(register, range(PROCESSES), chunksize=1).get(STUCK)}
        assert (addresses, key.read_text()) == (expected, kept), f"another key, or wallets: {addresses - expected}"
        print(f"{PROCESSES} registrations, one wallet")
