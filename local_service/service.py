"""The service: wallets, challenges and tokens in memory, behind a threading HTTP server on the loopback interface."""

import hashlib
import json
import secrets
import socket
import sys
import threading
import time
from collections.abc import Iterable
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

from cryptography.exceptions import InvalidSignature
from cryptography.hazmat.primitives.asymmetric.ed25519 import Ed25519PublicKey

from local_service.eras import ERAS_BY_MARKET
from local_service.faults import FAULTS, send

_LONGEST_BODY = 65536


class Refusal(Exception):
    """A request that the service answers with this status and reason."""

    def __init__(self, status: int, reason: str):
        super().__init__(reason)
        self.status = status


class LocalService:
    """Runs while it is entered; `url` is its address, `requests` every "METHOD PATH" so far.

    Each invite code registers one wallet. `faults` maps a path, such as "/eras", to a name of FAULTS and may be changed
    while the service runs.
    """

    def __init__(
        self,
        invite_codes: Iterable[str] = (),
        *,
        eras: object = None,
        faults: dict[str, str] | None = None,
        token_lifetime: float = 3600.0,
    ):
        self.invite_codes = set(invite_codes)
        self.eras = {"eras_by_market": ERAS_BY_MARKET} if eras is None else eras
        self.faults = faults or {}
        self.token_lifetime = token_lifetime
        self.wallets: dict[str, Ed25519PublicKey] = {}
        self.requests: list[str] = []
        self._challenges: dict[str, str] = {}
        self._expiry_by_token: dict[str, float] = {}
        self._lock = threading.Lock()
        self._stopped = threading.Event()

    def __enter__(self) -> "LocalService":
        handler = type("Handler", (_Handler,), {"service": self})
        self._server = _Server(("127.0.0.1", 0), handler)
        self.url = f"http://127.0.0.1:{self._server.server_port}"
        self._thread = threading.Thread(target=self._server.serve_forever, args=(0.05,), daemon=True)
        self._thread.start()
        return self

    def __exit__(self, *exception) -> None:
        if not self._stopped.is_set():
            self.refuse_connections()

    def refuse_connections(self) -> None:
        """Stop for good and let go of slow answers: from now on `url` refuses connections."""
        self._stopped.set()
        self._server.shutdown()
        self._server.server_close()
        self._thread.join()

    def register(self, request: dict) -> tuple[int, dict]:
        """Accept a new wallet for an unused invite code; a known wallet needs none."""
        try:
            encoded = bytes.fromhex(request["public_key"])
            public_key = Ed25519PublicKey.from_public_bytes(encoded)
        except (KeyError, ValueError):
            raise Refusal(400, "malformed public key") from None
        address = "0x" + hashlib.sha256(encoded).hexdigest()[:40]
        with self._lock:
            if address in self.wallets:
                return 200, {"address": address}
            if request.get("invite_code") not in self.invite_codes:
                raise Refusal(403, "unknown or used invite code")
            self.invite_codes.remove(request["invite_code"])
            self.wallets[address] = public_key
        return 201, {"address": address}

    def challenge(self, request: dict) -> tuple[int, dict]:
        """A text for the wallet to sign, good for one attempt."""
        address = request.get("address")
        if address not in self.wallets:
            raise Refusal(401, "unknown wallet")
        challenge = secrets.token_hex(32)
        self._challenges[challenge] = address
        return 200, {"challenge": challenge}

    def token(self, request: dict) -> tuple[int, dict]:
        """A bearer token for the wallet whose signature of its challenge is right."""
        challenge, address = request.get("challenge", ""), request.get("address", "")
        if self._challenges.pop(challenge, None) != address or address not in self.wallets:
            raise Refusal(401, "unknown challenge")
        try:
            signature = bytes.fromhex(request["signature"])
            self.wallets[address].verify(signature, b"sablecrest challenge " + challenge.encode())
        except (KeyError, ValueError, InvalidSignature):
            raise Refusal(401, "wrong signature") from None
        token, expires_at = secrets.token_urlsafe(32), time.time() + self.token_lifetime
        self._expiry_by_token[token] = expires_at
        return 200, {"token": token, "expires_at": expires_at}

    def list_eras(self, authorization: str) -> tuple[int, object]:
        """The era table, for the bearer of a token that has not expired."""
        scheme, _, token = authorization.partition(" ")
        if scheme != "Bearer" or self._expiry_by_token.get(token, 0.0) <= time.time():
            raise Refusal(401, "missing, unknown or expired token")
        return 200, self.eras


class _Handler(BaseHTTPRequestHandler):
    service: LocalService

    def do_GET(self) -> None:
        self._respond({"/eras": lambda: self.service.list_eras(self.headers.get("Authorization", ""))})

    def do_POST(self) -> None:
        body = self.rfile.read(min(int(self.headers.get("Content-Length", 0)), _LONGEST_BODY))
        service = self.service
        operations = {"/register": service.register, "/challenge": service.challenge, "/token": service.token}
        self._respond({path: lambda call=call: call(_json_object(body)) for path, call in operations.items()})

    def _respond(self, operations: dict) -> None:
        service = self.service
        service.requests.append(f"{self.command} {self.path}")
        fault = service.faults.get(self.path)
        if fault is not None:
            FAULTS[fault](self, service._stopped)
            return
        try:
            if self.path not in operations:
                raise Refusal(404, "no such path")
            status, answer = operations[self.path]()
        except Refusal as refusal:
            status, answer = refusal.status, {"error": str(refusal)}
        send(self, status, json.dumps(answer).encode())

    def log_message(self, *arguments) -> None:
        """Requests are in `LocalService.requests`; standard error stays for errors."""


def _json_object(body: bytes) -> dict:
    try:
        request = json.loads(body)
    except (ValueError, RecursionError):
        request = None
    if not isinstance(request, dict) or not all(isinstance(value, str) for value in request.values()):
        raise Refusal(400, "the body is not a JSON object of texts")
    return request


class _Server(ThreadingHTTPServer):
    daemon_threads = True
    # A crowd of agents connects faster than the server accepts; beyond the queue of 5 connections are lost.
    request_queue_size = socket.SOMAXCONN

    def handle_error(self, request, client_address) -> None:
        """A client that leaves before it has the whole answer is no error of the service."""
        if not isinstance(sys.exception(), ConnectionError):
            super().handle_error(request, client_address)
