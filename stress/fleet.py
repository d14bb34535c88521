"""Onboards a fleet while workers are killed, leave and join; then no key may be lost or replaced, and none shown."""

import csv
import gzip
import secrets
import subprocess
import sys
import tempfile
import time
from contextlib import ExitStack, suppress
from pathlib import Path

import cloudpickle
import psutil
from distributed import Client
from sablecrest.auth import AuthManager

from local_service import LocalService

PROGRAM = Path(__file__).parent.parent / "examples" / "onboard_fleet.py"


class DistantService(LocalService):
    """Takes its time once it has accepted a wallet: the key of a process that ends meanwhile is lost."""

    def challenge(self, request):
        time.sleep(0.5)
        return super().challenge(request)


def keys(place):
    return {path.parent.name: path.read_text() for path in place.glob("root/*/wallet.key")}


def main():
    agents, workers = (20, 2) if "--short" in sys.argv else (1000, 8)
    codes = [secrets.token_hex(16) for _ in range(agents)]
    with DistantService(codes) as service, tempfile.TemporaryDirectory() as folder, ExitStack() as stack:
        place, shown = Path(folder), stack.enter_context(open(Path(folder, "shown"), "a+"))
        table = [f"agent-{number},{code},7,{service.url}" for number, code in enumerate(codes)]
        (place / "agents.csv").write_text("\n".join(["name,invite_code,market_id,server_url", *table]))

        def start(*command):
            process = subprocess.Popen([sys.executable, *command], cwd=place, stdout=shown, stderr=shown)
            stack.callback(process.wait)
            stack.callback(process.kill)
            return process

        def tasks(dask_scheduler):  # in here it is sent as it is, for the scheduler has no `stress`
            """What the scheduler shows of its tasks, and what it holds of them."""
            held = [task.run_spec for task in dask_scheduler.tasks.values()]
            return str([[spec.args for spec in held], cloudpickle.dumps(held)])

        start("-m", "dask", "scheduler", "--port", "0", "--scheduler-file", "scheduler", "--no-dashboard")
        worker = ("-m", "dask", "worker", "--scheduler-file", "scheduler", "--no-nanny", "--nthreads", "1")
        running = [start(*worker) for _ in range(workers)]
        client = stack.enter_context(Client(scheduler_file=str(place / "scheduler")))
        onboard = (str(PROGRAM), "agents.csv", "root", "--scheduler", client.scheduler.address)
        first_run = start(*onboard)
        for kills, with_agents in enumerate((True, False, True), start=1):
            while len(service.wallets) < kills * agents // 5:
                time.sleep(0.01)
            print([process.info for process in psutil.process_iter(["cmdline"])], file=shown, flush=True)
            for process in [psutil.Process(each.pid) for each in running[: workers // 2]]:
                for each in (process, *(process.children() if with_agents else ())):  # both, as when a machine ends
                    with suppress(psutil.NoSuchProcess):
                        each.kill()
            running[-1].terminate()
            client.dump_cluster_state(str(place / f"state-{kills}"))
            print(client.run_on_scheduler(tasks), file=shown, flush=True)
            running = running[workers // 2 : -1]
            running += [start(*worker) for _ in range(workers - len(running))]
        assert first_run.poll() is None, "the third kill came too late"
        first_run.wait()
        first_keys = keys(place)
        second_status = start(*onboard).wait()

        rows = list(csv.DictReader((place / "results.csv").read_text().splitlines()))
        addresses = {row["name"]: row["address"] for row in rows if row["address"]}
        lost = [row["name"] for row in rows if row["outcome"].startswith("accepted, key lost")]
        print(f"{agents} agents: {len(first_keys)} keys, then {len(addresses)} registered, {len(lost)} keys lost")
        assert second_status == bool(lost)
        assert len(addresses) + len(lost) == len(service.wallets) == agents
        assert first_keys.items() <= keys(place).items(), "a key was overwritten"
        of_keys = {name: AuthManager("0x" + key, service.url) for name, key in keys(place).items()}
        assert addresses == {name: manager.get_wallet_address() for name, manager in of_keys.items()}
        assert all(path.stat().st_mode & 0o777 == 0o600 for path in place.rglob("wallet.key"))

        read = [path for path in place.rglob("*") if path.is_file() and path.name not in ("agents.csv", "wallet.key")]
        text = b"\n".join((gzip.open if path.suffix == ".gz" else open)(path, "rb").read() for path in read)
        assert all(f"Agent(name='agent-{number}'".encode() in text for number in range(agents)), "no task was read"
        known = [*codes, *keys(place).values(), *service._expiry_by_token]
        assert not any(secret.encode() in text for secret in known), "a secret was shown"
