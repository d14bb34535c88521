"""Onboards a fleet: registers every agent of a table, each in a process of its own, as tasks of Dask's scheduler.

    python onboard_fleet.py agents.csv /srv/agents                                    # on this machine
    python onboard_fleet.py agents.csv /srv/agents --scheduler tls://scheduler:8786   # on a cluster

The table is a CSV file with the columns `name`, `invite_code` and `market_id`; each further column is an option of
`configure`, its cells YAML. The agent NAME gets the data directory ROOT/NAME, and beside it ROOT/NAME.journal. Run the
same command again until every agent is there: who is registered is not asked again. docs/fleet.md tells the rest.
"""

import argparse
import csv
import inspect
import json
import logging
import os
import re
import subprocess
import sys
import time
from dataclasses import dataclass, field
from pathlib import Path
from tempfile import NamedTemporaryFile
from typing import NamedTuple

import yaml
from cryptography.fernet import Fernet
from distributed import Client, progress

KNOWN = "registered before"
KEY_LOST = "accepted, key lost: needs a new code"


@dataclass(frozen=True)
class Agent:
    """A row of the table. Schedulers hold it, and show and log its representation: neither tells the code."""

    name: str
    market_id: int | None
    options: dict[str, object]
    encrypted_code: bytes = field(repr=False)


class Result(NamedTuple):
    name: str
    address: str
    outcome: str
    seconds: float


def register_agent() -> None:
    """An agent's process: its order comes through standard input, what became of it leaves through standard output.

    It runs from its source text, and imports no more than it needs, to start fast.
    """
    import fcntl
    import json
    import os
    import random
    import sys
    import time

    order = json.load(sys.stdin)
    key_file = os.path.join(order["data_dir"], "wallet.key")
    os.umask(0o077)  # what is made here is nobody else's
    os.makedirs(os.path.dirname(key_file), exist_ok=True)
    with open(order["journal"], "a+") as journal:  # never unlinked: others may be waiting for it
        # Held by this process alone, as long as it lives. If its worker dies, the task's next process waits here.
        fcntl.flock(journal, fcntl.LOCK_EX)
        journal.seek(0)
        interrupted = bool(journal.read())
        if os.path.isfile(key_file) and not os.path.islink(key_file) and not os.path.getsize(key_file):
            os.remove(key_file)  # an earlier process ended between making the file and writing the key
        has_key = os.path.lexists(key_file)

        from sablecrest import agent_onboarding, auth

        address = ""
        try:
            if os.fstat(journal.fileno()).st_uid != os.getuid():
                raise OSError("Files that are made here belong to another user: the key would be refused.")
            agent_onboarding.configure(**order["options"])
            print("attempted", file=journal, flush=True)
            for longest_pause in (1, 2, 4, 8, 16, None):
                try:
                    address = agent_onboarding.register(**order["arguments"]).address
                    break
                except ConnectionError:  # perhaps after the service accepted the wallet
                    if longest_pause is None:
                        raise
                    interrupted = True
                    time.sleep(random.uniform(0, longest_pause))  # the fleet must not come back all at once
            print(address, file=journal, flush=True)
            outcome = KNOWN if has_key else "registered"
        except Exception as error:
            outcome = f"{type(error).__name__}: {error}"
            if isinstance(error, auth.RegistrationError) and interrupted and not os.path.lexists(key_file):
                outcome = f"{KEY_LOST} ({error})"
            elif isinstance(error, (auth.RegistrationError, ValueError)) and not interrupted:
                journal.truncate(0)  # nothing was accepted
        json.dump([address, outcome], sys.stdout)


CHILD = f"KNOWN, KEY_LOST = {KNOWN!r}, {KEY_LOST!r}\n{inspect.getsource(register_agent)}\nregister_agent()\n"


def onboard(agent: Agent, root: str, code_key: str) -> Result:
    """The task of one agent. Runs again, perhaps elsewhere, when its worker is lost."""
    started = time.monotonic()
    data_dir, journal = os.path.join(root, agent.name), os.path.join(root, f"{agent.name}.journal")
    try:
        address = Path(journal).read_text().split()[-1]
        if address != "attempted" and os.path.getsize(os.path.join(data_dir, "wallet.key")):
            return Result(agent.name, address, KNOWN, 0.0)
    except (FileNotFoundError, IndexError):
        pass
    code = Fernet(Path(code_key).read_bytes()).decrypt(agent.encrypted_code).decode()
    # The agent's own settings file, if any, and no HEARTBEAT.md: those of the worker's user are for another agent.
    arguments = {"invite_code": code or None, "data_dir": data_dir, "market_id": agent.market_id}
    arguments["settings_path"] = os.path.join(data_dir, "settings.yaml")
    options = agent.options | {"auto_heartbeat": False}
    order = {"data_dir": data_dir, "journal": journal, "arguments": arguments, "options": options}
    # To end the process may cost the agent its wallet: there is no time limit, and Ctrl-C reaches the worker alone.
    command = [sys.executable, "-P", "-c", CHILD]  # -P: nothing is imported from the current directory
    child = subprocess.run(command, input=json.dumps(order), capture_output=True, text=True, start_new_session=True)
    try:
        address, outcome = json.loads(child.stdout)
    except ValueError:
        last_line = child.stderr.strip().rpartition("\n")[2]
        address, outcome = "", f"the process ended with status {child.returncode}: {last_line}"
    if code:
        outcome = outcome.replace(code, "<redacted>")
    return Result(agent.name, address, outcome, round(time.monotonic() - started, 2))


def read_table(path: str, cipher: Fernet) -> list[Agent]:
    agents: dict[str, Agent] = {}
    with open(path, newline="", encoding="utf-8-sig") as file:
        for row in (reader := csv.DictReader(file, restval="")):
            name, code, market_id = (row.pop(column).strip() for column in ("name", "invite_code", "market_id"))
            if not re.fullmatch(r"[\w-]+", name) or name in agents:
                raise ValueError(f"{path}:{reader.line_num}: the name is taken, or not only letters, digits, - and _.")
            options = {option: yaml.safe_load(cell) for option, cell in row.items() if cell}
            agents[name] = Agent(name, int(market_id) if market_id else None, options, cipher.encrypt(code.encode()))
    return list(agents.values())


def connect(arguments: argparse.Namespace) -> Client:
    if arguments.scheduler:
        return Client(arguments.scheduler)
    return Client(
        processes=False,  # its threads only wait
        threads_per_worker=arguments.at_once,
        dashboard_address="127.0.0.1:0",
        worker_dashboard_address="127.0.0.1:0",
        silence_logs=logging.CRITICAL,  # the end of the progress bar is an error to the scheduler
    )


def main() -> int:
    parser = argparse.ArgumentParser(description="Register every agent of a table, each in a process of its own.")
    parser.add_argument("table", help="CSV file: name, invite_code, market_id, and options of configure")
    parser.add_argument("root", help="folder of the data directories, the same on all workers")
    parser.add_argument("--scheduler", help="address of a Dask scheduler; without one, this machine does the work")
    parser.add_argument("--at-once", type=int, default=os.cpu_count(), help="registrations at a time on this machine")
    parser.add_argument("--results", default="results.csv", help="CSV file of the results (%(default)s)")
    arguments = parser.parse_args()
    root, key = os.path.abspath(arguments.root), Fernet.generate_key()
    agents = read_table(arguments.table, Fernet(key))
    os.makedirs(root, mode=0o700, exist_ok=True)

    # The key of the codes: workers read it in ROOT, as this user, and the scheduler never has it.
    with NamedTemporaryFile(dir=root, prefix=".key-", delete_on_close=False) as file, connect(arguments) as client:
        file.write(key)
        file.close()
        names = [("onboard", f"{root}/{agent.name}") for agent in agents]
        futures = client.map(onboard, agents, key=names, pure=False, root=root, code_key=file.name)
        progress(futures, notebook=False)
        print()
        finished = {result.name: result for result in client.gather(futures, errors="skip")}
        errors = [future.exception() for future in futures]  # of the engine: a lost worker, a full disk
    results = [
        finished.get(agent.name) or Result(agent.name, "", f"{type(error).__name__}: {error}", 0.0)
        for agent, error in zip(agents, errors)
    ]

    with open(arguments.results, "w", newline="", encoding="utf-8") as file:
        csv.writer(file).writerows([Result._fields, *results])
    for result in results:
        print(f"{result.name:20} {result.address or '-':42} {result.seconds:8.2f} s  {result.outcome}")
    missing = [result for result in results if not result.address]
    lost = sum(result.outcome.startswith(KEY_LOST) for result in missing)
    print(f"{len(results) - len(missing)} agents registered, {len(missing)} missing, {lost} of these need a new code.")
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
