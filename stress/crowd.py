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
    command, answers = [sys.executable, "-m", "local_service", "--invite-code", "CODE"], Counter()
    pipes = dict.fromkeys(("stdin", "stdout"), subprocess.PIPE)
    with tempfile.TemporaryDirectory() as folder, subprocess.Popen(command, text=True, **pipes) as service:
        os.environ["HOME"], key = folder, Path(folder, "wallet.key")
        agent_onboarding.configure(server_url=service.stdout.readline(), data_dir=folder, auto_heartbeat=False)
        expected, kept = {agent_onboarding.register("CODE").address: PROCESSES * rounds}, key.read_text()
        for _ in range(rounds):
            with fork.Pool(PROCESSES) as pool:
                answers.update(pool.map_async(register, range(PROCESSES), chunksize=1).get(DEADLINE))
        service.stdin.close()
        print(f"{PROCESSES * rounds} answers, {len(answers)} different ones", *answers.items(), sep="\n    ")
        sys.exit(answers != expected or key.read_text() != kept)


if __name__ == "__main__":
    main(1 if "--short" in sys.argv else 10)
