"""Lets a crowd of processes register with one known wallet at the same moment: the service must answer all of them."""

import multiprocessing
import os
import subprocess
import sys
import tempfile
from collections import Counter
from pathlib import Path

from sablecrest import agent_onboarding

PROCESSES = 128
DEADLINE = 120  # seconds, for one round

fork = multiprocessing.get_context("fork")
all_ready = fork.Barrier(PROCESSES)


def register(_):
    """The wallet's address, or what went wrong. Waiting for all others, each process does it once a round."""
    all_ready.wait(DEADLINE)
    try:
        return agent_onboarding.register().address
    except Exception as error:
        return repr(error)


def main(rounds):
    command = [sys.executable, "-m", "local_service", "--invite-code", "CODE"]
    with (
        tempfile.TemporaryDirectory() as folder,
        subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as service,
    ):
        os.environ["HOME"] = folder
        agent_onboarding.configure(server_url=service.stdout.readline(), data_dir=folder, auto_heartbeat=False)
        address, key = agent_onboarding.register("CODE").address, Path(folder, "wallet.key").read_text()
        answers = Counter()
        for _ in range(rounds):
            with fork.Pool(PROCESSES) as pool:
                answers.update(pool.map_async(register, range(PROCESSES), chunksize=1).get(DEADLINE))
        unchanged = Path(folder, "wallet.key").read_text() == key
        service.stdin.close()
    registered = answers.pop(address, 0)
    print(f"{registered} of {PROCESSES * rounds} registered", *answers.items(), sep="\n    ")
    sys.exit(bool(answers) or registered < PROCESSES * rounds or not unchanged)


if __name__ == "__main__":
    main(1 if "--short" in sys.argv else 10)
