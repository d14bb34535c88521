"""The bad answers that the service can be told to give, by name."""

import os
import socket
import struct
from collections.abc import Callable
from http.server import BaseHTTPRequestHandler
from threading import Event


def send(handler: BaseHTTPRequestHandler, status: int, body: bytes = b"", **headers: str) -> None:
    """Send one whole answer."""
    handler.send_response(status)
    for name, value in {"Content-Type": "application/json", "Content-Length": str(len(body)), **headers}.items():
        handler.send_header(name, value)
    handler.end_headers()
    handler.wfile.write(body)


def _reset_in_body(handler: BaseHTTPRequestHandler, stopped: Event) -> None:
    handler.wfile.write(b'HTTP/1.0 200 OK\r\nContent-Length: 1000\r\n\r\n{"eras_by_market": ')
    # Without lingering, close() resets the connection instead of ending it.
    on_for_no_time = struct.pack("HH" if os.name == "nt" else "ii", 1, 0)
    handler.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, on_for_no_time)
    handler.connection.close()


def _slow_header(handler: BaseHTTPRequestHandler, stopped: Event) -> None:
    handler.wfile.write(b"HTTP/1.0 200 OK\r\nContent-Type: ")
    stopped.wait(60)


def _answer(status: int, body: bytes = b"") -> Callable:
    return lambda handler, stopped: send(handler, status, body)


#: Each is called in place of the answer, with the event that is set when the service stops.
FAULTS: dict[str, Callable[[BaseHTTPRequestHandler, Event], None]] = {
    "reset": _reset_in_body,
    "slow-header": _slow_header,
    "no-content": _answer(204),
    "redirect-loop": lambda handler, stopped: send(handler, 301, Location=handler.path),
    "unauthorized": _answer(401, b'{"error": "unauthorized"}'),
    "server-error": _answer(500, b'{"error": "internal error"}'),
    "truncated-json": _answer(200, b'{"eras_by_market": {"7": ['),
    "array": _answer(200, b"[1, 2]"),
    "invalid-utf8": _answer(200, b'{"eras_by_market": "\xff\xfe"}'),
    "nested-arrays": lambda handler, stopped: send(handler, 200, b"[" * 5_000_000 + b"]" * 5_000_000),
}
