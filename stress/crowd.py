"""Lets a crowd of processes register with one known wallet at the same moment: the service must answer all of them."""

import os
import sys
import tempfile
from pathlib import Path

from sablecrest import agent_onboarding

from local_service import LocalService
from stress.child import fork

PROCESSES = 128
ROUNDS = 1 if "--short" in sys.argv else 10
DEADLINE = 120  # seconds, for one round

all_ready = fork.Barrier(PROCESSES)


def register(_):
    """Waiting for all others, each process does it once a round."""
    all_ready.wait(DEADLINE)
    return agent_onboarding.register().address


def main():
    with LocalService(["CODE"]) as service, tempfile.TemporaryDirectory() as folder:
        os.environ["HOME"], key = folder, Path(folder, "wallet.key")
        agent_onboarding.configure(server_url=service.url, data_dir=folder, auto_heartbeat=False)
        expected, kept = {agent_onboarding.register("CODE").address}, key.read_text()
        for _ in range(ROUNDS):
            with fork.Pool(PROCESSES) as pool:
                addresses = {*pool.map_async(register, range(PROCESSES), chunksize=1).get(DEADLINE)}
            assert addresses == expected, f"other wallets: {addresses - expected}"
            assert key.read_text() == kept, "the key was replaced"
        print(f"{PROCESSES * ROUNDS} registrations, one wallet")
