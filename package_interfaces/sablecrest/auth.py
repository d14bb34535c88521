"""An agent's session with the service: its key pair, its registration and its bearer token.

The wallet's private key is the seed of an Ed25519 key pair; the address is derived from the public key. The service is
asked in three steps, each a POST of a JSON object: `/register` (public key, invite code), `/challenge` (address) and
`/token` (address, challenge, signature). Keys, tokens and invite codes never appear in a message or representation.
"""

import hashlib
import http.client
import json
import re
import urllib.error
import urllib.parse
import urllib.request

_TIMEOUT_SECONDS = 15

_active_auth_manager: "AuthManager | None" = None


class AuthError(Exception):
    """The service refused the authentication or answered something unusable."""


class RegistrationError(AuthError):
    """The service refused to register the wallet."""


class InvalidKeyError(AuthError):
    """The private key is not "0x" and 64 hexadecimal digits."""


def _normalize_invite_code(code: object) -> str | None:
    """The code as text without surrounding blanks; None when nothing is left."""
    return str(code).strip() or None if code is not None else None


def _validate_server_url(value: str) -> str:
    """`value` without surrounding blanks and final slashes; ValueError unless it is an http(s) URL of a host.

    User names, queries and fragments are refused: they would travel with every request.
    """
    url = value.strip().rstrip("/")
    parts = urllib.parse.urlsplit(url)
    plain = not (parts.username or parts.password or parts.query or parts.fragment)
    if parts.scheme not in ("http", "https") or not parts.hostname or not plain:
        raise ValueError("Server URL must be an http or https URL of a host, without user name, query or fragment.")
    return url


def _set_active_auth_manager(am: "AuthManager") -> None:
    """Make `am` the process-wide manager."""
    global _active_auth_manager
    _active_auth_manager = am


class AuthManager:
    """A client of the service at `server_url` for one wallet.

    With `register_wallet`, or with an invite code, `authenticate` registers the wallet first; the service accepts a
    wallet that it knows already without using the code up. Raises InvalidKeyError for a malformed private key and
    ValueError for a malformed URL.
    """

    def __init__(
        self, private_key: str, server_url: str, invite_code: str | None = None, register_wallet: bool = False
    ):
        from cryptography.hazmat.primitives.asymmetric.ed25519 import Ed25519PrivateKey

        if not re.fullmatch(r"0[xX][0-9a-fA-F]{64}", private_key):
            raise InvalidKeyError("A private key is 0x and 64 hexadecimal digits.")
        self._signing_key = Ed25519PrivateKey.from_private_bytes(bytes.fromhex(private_key[2:]))
        self._public_key = self._signing_key.public_key().public_bytes_raw()
        self._address = "0x" + hashlib.sha256(self._public_key).hexdigest()[:40]
        self._server_url = _validate_server_url(server_url)
        self._invite_code = invite_code
        self._register_wallet = register_wallet
        #: True once the service has accepted this wallet's registration, whatever fails afterwards.
        self._registration_acknowledged = False
        self._token: str | None = None
        self._expires_at = 0.0

    def authenticate(self) -> None:
        """Register the wallet where that is wanted, then obtain a token.

        Raises ConnectionError when the service cannot be reached, RegistrationError when it refuses the registration,
        AuthError when it refuses the authentication.
        """
        if self._register_wallet or self._invite_code is not None:
            self._register()
        challenge = self._post("/challenge", {"address": self._address}, AuthError).get("challenge")
        if not isinstance(challenge, str):
            raise AuthError("The service sent no challenge.")
        proof = {"address": self._address, "challenge": challenge, "signature": self._sign(challenge)}
        answer = self._post("/token", proof, AuthError)
        token, expires_at = answer.get("token"), answer.get("expires_at")
        if not isinstance(token, str) or not token or not isinstance(expires_at, (int, float)):
            raise AuthError("The service sent no token.")
        self._token, self._expires_at = token, float(expires_at)

    def get_token(self) -> str | None:
        """The bearer token; None before the first successful `authenticate`."""
        return self._token

    def get_token_expiry(self) -> float:
        """When the token expires, in seconds since the epoch; 0.0 without a token."""
        return self._expires_at

    def get_wallet_address(self) -> str:
        """The wallet's address, "0x" and 40 hexadecimal digits."""
        return self._address

    def _register(self) -> None:
        request = {"public_key": self._public_key.hex(), "invite_code": self._invite_code}
        self._post("/register", request, RegistrationError)
        self._registration_acknowledged = True

    def _sign(self, challenge: str) -> str:
        # The prefix keeps a signature from meaning anything outside this protocol.
        return self._signing_key.sign(b"sablecrest challenge " + challenge.encode()).hex()

    def _post(self, path: str, body: dict, refusal: type[AuthError]) -> dict:
        """The service's answer; `refusal` when it says no (4xx), AuthError for any other unusable answer."""
        request = urllib.request.Request(
            self._server_url + path, json.dumps(body).encode(), {"Content-Type": "application/json"}
        )
        try:
            with urllib.request.urlopen(request, timeout=_TIMEOUT_SECONDS) as response:
                answer = json.loads(response.read())
        except urllib.error.HTTPError as error:
            with error:
                if 400 <= error.code < 500:
                    raise refusal(f"HTTP {error.code} {_stated_reason(error)}".rstrip()) from None
            raise AuthError(f"The service answered HTTP {error.code}.") from None
        except (OSError, http.client.HTTPException) as error:
            raise ConnectionError(f"The service cannot be reached: {type(error).__name__}.") from error
        except (ValueError, RecursionError):
            raise AuthError("The service's answer is not JSON.") from None
        if not isinstance(answer, dict):
            raise AuthError("The service's answer is not a JSON object.")
        return answer


def _stated_reason(error: urllib.error.HTTPError) -> str:
    try:
        return str(json.loads(error.read(10_000))["error"])
    except (OSError, http.client.HTTPException, ValueError, KeyError, TypeError, RecursionError):
        return error.reason
