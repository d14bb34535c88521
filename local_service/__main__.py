"""Run the service until SIGTERM, SIGINT or the end of standard input; its URL is the first line of output."""

import argparse
import signal
import sys

from local_service import FAULTS, LocalService


def _fault(text: str) -> tuple[str, str]:
    path, _, name = text.partition("=")
    if name not in FAULTS:
        raise argparse.ArgumentTypeError(f"{name!r} is none of {', '.join(FAULTS)}")
    return path, name


parser = argparse.ArgumentParser(prog="python -m local_service", description=__doc__)
parser.add_argument("--invite-code", action="append", default=[], help="a code that one wallet may register with")
parser.add_argument("--fault", action="append", default=[], type=_fault, metavar="PATH=FAULT", help=", ".join(FAULTS))
parser.add_argument("--refuse", action="store_true", help="refuse connections to the URL that is printed")
parser.add_argument("--token-lifetime", type=float, default=3600.0, metavar="SECONDS")
arguments = parser.parse_args()

for number in (signal.SIGTERM, signal.SIGINT):
    signal.signal(number, lambda *_: sys.exit(0))
with LocalService(
    arguments.invite_code, faults=dict(arguments.fault), token_lifetime=arguments.token_lifetime
) as service:
    if arguments.refuse:
        service.refuse_connections()
    print(service.url, flush=True)
    sys.stdin.buffer.read()
