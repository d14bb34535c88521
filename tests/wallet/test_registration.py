"""Registration and login: every outcome, with a scripted client."""

import dataclasses
import os
import secrets

from sablecrest import auth
from sablecrest.settings import DATA_DIR, default_settings_path
from support.cases import FOLDER, Case, checked, given, raising

# fmt: off
KEY, NEW, PATH, URL = "ab" * 32, "cd" * 32, "data/wallet.key", "https://server"
UNREACHABLE = ConnectionError("Cannot reach SableCrest server. Check your network connection and try again.")
BAD_KEY = ValueError("Invalid private key format. Expected hex string (64 characters) or 32 bytes.")
NO_CODE = ValueError("Invite code required. Pass --invite-code, set invite_code in settings.yaml, "
                     "or call register(invite_code=...).")
NO_MARKET = ValueError("Runtime bootstrap requires an explicit positive market_id. Set 'market_id' to a positive "
                       "integer in ~/.sablecrest/settings.yaml (run `sablecrest init` to add the field).")
REFUSED = auth.AuthError("Authentication failed. Verify your private key is correct.")
NOT_REGISTERED = auth.RegistrationError("Registration failed: no. Contact support if this persists.")
# fmt: on
# Two handlers would take each of these: the order counts.
Unreachable = type("Unreachable", (auth.RegistrationError, ConnectionError), {})
Invalid = type("Invalid", (auth.InvalidKeyError, ConnectionError), {})
Refused = type("Refused", (auth.InvalidKeyError, auth.RegistrationError), {})
failing, SETTINGS = raising(OSError, "injected"), str(default_settings_path())


# Stands in for `auth.AuthManager`: it says yes, or raises what it is told to.
@dataclasses.dataclass
class Client:
    private_key: str
    server_url: str
    invite_code: str | None = None
    register_wallet: bool = False
    get_token, get_token_expiry, get_wallet_address = (lambda _: "token"), (lambda _: 1.5), (lambda _: "0xaddress")
    __repr__ = lambda _: "CLIENT"  # noqa: E731

    def authenticate(self):
        if self.error:
            raise self.error("no")


# The client fails with the error; the service `accepts` the new wallet, or not; the key of another one is there.
def service(error=None, accepts=False, wallet=None, names=(), auth_names=(), **config):
    def prepare(module, patch):
        options = {"data_dir": os.path.realpath("data"), "server_url": URL, "_settings_path": SETTINGS}
        given({PATH: wallet} if wallet else {}, config=options | config, **dict(names))(module, patch)
        Client.error, Client._registration_acknowledged = error, accepts
        patch.setattr(secrets, "token_hex", lambda count: NEW[: 2 * count])
        for name, value in ({"AuthManager": Client} | dict(auth_names)).items():
            patch.setattr(auth, name, value)

    return prepare


def with_file(module, patch):
    service(data_dir=DATA_DIR, market_id=5)(module, patch)
    given({"s.yaml": "{invite_code: CODE, market_id: 0, data_dir: data}"})(module, patch)


# The client that is in force afterwards.
def session(*arguments):
    return {"_auth_manager": Client(*arguments), "auth._active_auth_manager": Client(*arguments)}


def register(*arguments, **keywords):
    return lambda m: m.register(*arguments, **keywords).address


def login(*arguments):
    return lambda m: dataclasses.astuple(m.login(*arguments))


NEW_WALLET, OLD_WALLET = ("0x" + NEW, URL, "CODE", True), ("0x" + KEY, URL, None, False)
DONE, MADE, STORED = "0xaddress", {"data": FOLDER}, {"data": FOLDER, PATH: (NEW, 0o600)}
ALONE, NOT_TELLING = {"_auth_manager": Client(*NEW_WALLET)}, {"_set_active_auth_manager": failing}
NO_RUNTIME = {"_resolve_active_named_universe": lambda am: None, "_propagate_auth": failing}
NO_STORE = {"_write_wallet_key": failing}
NOT_TOLD = [("WARNING", "Failed to set active auth manager: %s", OSError("injected"))]
new = register("CODE")
BEGIN = """_apply_file_settings(settings_path=None)  _canonical_data_dir('HERE/data')
    os.makedirs('HERE/data', exist_ok=True)"""
TELL, ANSWER = "auth._set_active_auth_manager(CLIENT)", "AuthManager.get_token()  AuthManager.get_token_expiry()"
END = "AuthManager.get_wallet_address()  inject_heartbeat()"
# fmt: off
#: What `authenticate` raises, and what `register` and `login` make of it.
MEANINGS = [
    ("breaks off", ConnectionResetError, UNREACHABLE, UNREACHABLE),
    ("breaks off in a registration", Unreachable, UNREACHABLE, UNREACHABLE),
    ("breaks off over a key", Invalid, UNREACHABLE, BAD_KEY),
    ("refuses the registration", Refused, NOT_REGISTERED, BAD_KEY),
    ("finds the key malformed", auth.InvalidKeyError, BAD_KEY, BAD_KEY),
]
REGISTER = [
    Case("a new wallet is registered, and its key stored", service(), new, DONE, files=STORED,
         names=session(*NEW_WALLET), calls=f"""{BEGIN}  _read_wallet_key('HERE/data')  _resolve_invite_code('CODE')
         secrets.token_hex(32)  _normalize_key('{NEW}')
         auth.AuthManager('0x{NEW}', 'https://server', invite_code='CODE', register_wallet=True)
         AuthManager.authenticate()  _write_wallet_key('HERE/data', '{NEW}')  {TELL}  {END}"""),
    Case("a wallet that is there is authenticated, its file left alone", service(wallet=f"{KEY}\n", invite_code="x"),
         register(), DONE, names=session(*OLD_WALLET)),
    Case("a code goes along with a wallet that is there, and the checklist is switched off",
         service(wallet=KEY, data_dir="x", auto_heartbeat=False), register(" CODE ", "data"), DONE,
         names=session("0x" + KEY, URL, "CODE", False), config={"data_dir": "HERE/data"},
         calls="...  AuthManager.get_wallet_address()"),
    Case("the runtime is brought up, strictly, once the session is in force", service(names=NO_RUNTIME, market_id=0),
         register("CODE", None, "1", True), raises=OSError("injected"), files=STORED, names=ALONE,
         config={"market_id": 1}, calls=f"""...  _write_wallet_key('HERE/data', '{NEW}')
         _resolve_active_named_universe(CLIENT)  _propagate_auth(CLIENT, strict=True)"""),
    Case("the settings file goes before options, arguments before both", with_file,
         register(None, None, True, settings_path="s.yaml"), DONE, files=STORED, names=session(*NEW_WALLET),
         config={"_settings_path": "HERE/s.yaml", "data_dir": "HERE/data", "market_id": 1, "invite_code": "CODE"}),
    Case("its key gets its prefix once", given(), lambda m: [*map(m._normalize_key, ("", "0xa", "0X😀", "é0x"))],
         ["0x", "0xa", "0X😀", "0xé0x"]),
    Case("a market that is no number is not stored", service(data_dir="data"), register("CODE", None, "x"),
         raises=ValueError, config={"data_dir": "HERE/data"}),
    Case("there is no code", service(invite_code="  "), register(), raises=NO_CODE, files=MADE),
    *(Case(f"{market!r} is no market for a runtime", service(market_id=market), register(bootstrap_runtime=True),
           raises=NO_MARKET) for market in (None, "abc", 0, 0.9)),
    *(Case(f"the service accepts the wallet and then {what}: the key is lost", service(error, True), new, raises=raises,
           context=error, files=MADE) for what, error, raises, _ in MEANINGS),
    *(Case(f"the service accepts the wallet, then {error.__name__}: the key is kept", service(error, True), new,
           raises=error("no"), files=STORED) for error in (auth.AuthError, OSError)),
    Case("the service accepts the wallet and is then interrupted: the key is lost", service(KeyboardInterrupt, True),
         new, raises=KeyboardInterrupt("no"), files=MADE),
    Case("the service accepts the wallet, then it fails, and so does keeping the key", service(OSError, True,
         names=NO_STORE), new, raises=OSError("injected"), context=OSError("no"), files=MADE),
    Case("the service accepts the wallet, but its key cannot be stored: no session", service(names=NO_STORE), new,
         raises=OSError("injected"), files=MADE),
    Case("the service accepts nothing: no key is kept", service(OSError), new, raises=OSError("no"), files=MADE),
    Case("a known wallet is refused", service(OSError, True, f"{KEY}\n"), register(), raises=OSError("no")),
    Case("others cannot be told", service(auth_names=NOT_TELLING), new, DONE, files=STORED, names=ALONE, log=NOT_TOLD),
]
OTHER, OTHER_ALONE = session("0x" + NEW, URL), {"_auth_manager": Client("0x" + NEW, URL)}
LOGIN = [
    Case("the key is stored, then authenticated", service(wallet=KEY * 2), login(NEW), ("token", 1.5), names=OTHER,
         files={PATH: (NEW, 0o600)}, calls=f"""{BEGIN}  _write_wallet_key('HERE/data', '{NEW}')
         _normalize_key('{NEW}')  auth.AuthManager('0x{NEW}', 'https://server')  AuthManager.authenticate()
         {TELL}  {ANSWER}"""),
    Case("the key is stored as it is given", service(data_dir="data"), login("0X"), ("token", 1.5),
         files={"data": FOLDER, PATH: "0X"}, names=session("0X", URL), config={"data_dir": "HERE/data"}),
    Case("None is no key", service(), login(None), raises=BAD_KEY, calls=""),
    *(Case(f"the service {what}: the key stays", service(error), login(NEW), raises=raises, context=error, files=STORED)
      for what, error, _, raises in (*MEANINGS, ("refuses", auth.AuthError, None, REFUSED))),
    Case("what else fails passes", service(OSError), login(NEW), raises=OSError("no"), files=STORED),
    Case("an unwritable key is not tried", service(names=NO_STORE), login(NEW), raises=OSError("injected"), files=MADE),
    Case("the runtime is brought up, strictly, once the login is in force", service(names=NO_RUNTIME),
         login(NEW, True), raises=OSError("injected"), files=STORED, names=OTHER_ALONE,
         calls="...  AuthManager.authenticate()  _propagate_auth(CLIENT, strict=True)"),
]
# fmt: on
test_register_creates_a_wallet_or_authenticates_the_one_that_is_there = checked(REGISTER)
test_login_stores_the_key_and_authenticates = checked(LOGIN)
