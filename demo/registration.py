"""An agent's first day: registration, return, login, the key file's checks, and its checklist."""

import os
import re
import time
from pathlib import Path
from types import SimpleNamespace

from sablecrest import agent_onboarding
from sablecrest.auth import RegistrationError

from demo.steps import Secret, Step, fingerprint, local_service, on_disk, run_chapter

DATA_DIR = "~/.sablecrest/data"
KEY_FILE = f"{DATA_DIR}/wallet.key"
SETTINGS_FILE = "~/.sablecrest/settings.yaml"
CHECKLIST = "~/workspace/HEARTBEAT.md"
OPTIONS = (
    "algorithm, auto_heartbeat, data_dir, family, feature_budget_gb, invite_code, market, market_id, named_universe, "
    "named_universes, rotation_frequency, rotation_seed, server_url, signal_service_url, subfamily, "
    "sync_http_chunk_bytes, sync_http_transport, sync_max_concurrency"
)


def first_registration(step: Step, agent: SimpleNamespace) -> None:
    """A new agent registers with the invite code and the server that its settings file names."""
    settings = Path(SETTINGS_FILE).expanduser()
    settings.parent.mkdir()
    settings.write_text(f"server_url: {agent.url}\ninvite_code: WELCOME\n")
    step.did(f"wrote {SETTINGS_FILE}: server_url {agent.url}, invite_code WELCOME")

    agent.address = step.call(agent_onboarding.register).address
    agent.key = _content(KEY_FILE)
    step.show(KEY_FILE)
    step.expect("an address of 40 digits", bool(re.fullmatch("0x[0-9a-f]{40}", agent.address)), True)
    step.expect_private(KEY_FILE)
    step.expect("64 hexadecimal digits, nothing else", bool(re.fullmatch("[0-9a-f]{64}", agent.key)), True)


def used_invite_code(step: Step, agent: SimpleNamespace) -> None:
    """Another wallet is refused the same invite code."""
    reason = "HTTP 403 unknown or used invite code"
    error = RegistrationError(f"Registration failed: {reason}. Contact support if this persists.")
    step.refused(error, agent_onboarding.register, invite_code="WELCOME", data_dir="~/second")
    step.show("~/second", "~/second/wallet.key")
    step.expect("no key was stored", on_disk("~/second/wallet.key"), {"mode": "absent"})


def return_of_the_agent(step: Step, agent: SimpleNamespace) -> None:
    """The first agent comes back, needs no invite code, and is recognised."""
    before = fingerprint(KEY_FILE)
    returned = step.call(agent_onboarding.register, data_dir=DATA_DIR)
    step.show(KEY_FILE)
    step.expect("the same address", returned.address, agent.address)
    step.expect("the file's bytes, mode and time of modification are as before", fingerprint(KEY_FILE), before)


def login(step: Step, agent: SimpleNamespace) -> None:
    """It logs in with its key, and the token stays out of sight."""
    token = step.call(agent_onboarding.login, agent.key)
    agent.token = token.token
    step.show(KEY_FILE)
    step.expect("the token is hidden", repr(token), f"AuthToken(token='<redacted>', expires_at={token.expires_at!r})")
    step.expect("it is valid for some time", token.expires_at > time.time(), True)
    step.expect("the key is stored as it was given", _content(KEY_FILE) == agent.key, True)


def loose_permissions(step: Step, agent: SimpleNamespace) -> None:
    """A key file that others could read is tightened."""
    os.chmod(os.path.expanduser(KEY_FILE), 0o644)
    step.did(f"chmod 0644 {KEY_FILE}")
    step.show(KEY_FILE)
    returned = step.call(agent_onboarding.register)
    step.show(KEY_FILE)
    step.expect("the same address", returned.address, agent.address)
    step.expect_private(KEY_FILE)


def symbolic_link(step: Step, agent: SimpleNamespace) -> None:
    """A key file that is a symbolic link is refused, though it leads to a good key."""
    os.mkdir(os.path.expanduser("~/linked"))
    os.symlink(os.path.expanduser(KEY_FILE), os.path.expanduser("~/linked/wallet.key"))
    step.did(f"ln -s {KEY_FILE} ~/linked/wallet.key")
    _refuse_unsafe_wallet(step, "~/linked", fingerprint(KEY_FILE))


def directory(step: Step, agent: SimpleNamespace) -> None:
    """A directory in the place of the key file is refused."""
    os.makedirs(os.path.expanduser("~/folder/wallet.key"))
    step.did("mkdir ~/folder/wallet.key")
    _refuse_unsafe_wallet(step, "~/folder", fingerprint(KEY_FILE))


def _refuse_unsafe_wallet(step: Step, data_dir: str, key_file: dict) -> None:
    path = f"{data_dir}/wallet.key"
    before = fingerprint(path)
    refusal = "Refusing to use wallet.key with unsafe ownership, type, or permissions."
    error = OSError(f"Unsafe wallet key at {Path(path).expanduser()}. {refusal}")
    step.refused(error, agent_onboarding.register, data_dir=data_dir)
    step.show(path)
    step.expect("it lies there as before", fingerprint(path), before)
    step.expect("so does the first agent's key", fingerprint(KEY_FILE), key_file)


def no_server(step: Step, agent: SimpleNamespace) -> None:
    """Without a server nothing is stored, and the invite code stays good for later."""
    error = ConnectionError("Cannot reach SableCrest server. Check your network connection and try again.")
    with local_service("--refuse") as dead_url:
        step.call(agent_onboarding.configure, server_url=dead_url)
        step.refused(error, agent_onboarding.register, invite_code="SPARE", data_dir="~/third")
    step.show("~/third/wallet.key")
    step.expect("no key was stored", on_disk("~/third/wallet.key"), {"mode": "absent"})

    step.call(agent_onboarding.configure, server_url=agent.url)
    third = step.call(agent_onboarding.register, invite_code="SPARE")
    step.show("~/third/wallet.key")
    step.expect("a new wallet, of another address", third.address != agent.address, True)


def checklist(step: Step, agent: SimpleNamespace) -> None:
    """Registration adds the checklist to the workspace's HEARTBEAT.md, once."""
    path = Path(CHECKLIST).expanduser()
    path.write_text("# My heartbeat\n")
    step.did(f"wrote {CHECKLIST}: one heading")
    step.call(agent_onboarding.register, data_dir=DATA_DIR)
    step.show(CHECKLIST)
    step.expect("the heading is still there", path.read_text(encoding="utf-8").splitlines()[0], "# My heartbeat")
    step.expect("five boxes to tick", _boxes(), 5)

    before = fingerprint(CHECKLIST)
    step.call(agent_onboarding.inject_heartbeat)
    step.expect("the second call leaves the file alone", fingerprint(CHECKLIST), before)


def nudge(step: Step, agent: SimpleNamespace) -> None:
    """A milestone becomes one more line, once."""
    step.call(agent_onboarding.update_nudge, "first_signal")
    step.show(CHECKLIST)
    last_line = Path(CHECKLIST).expanduser().read_text(encoding="utf-8").splitlines()[-1]
    wanted = "- [ ] [SableCrest] First signal found! Check status for details."
    step.expect(f'the last line is "{wanted}"', last_line, wanted)
    before = fingerprint(CHECKLIST)
    step.call(agent_onboarding.update_nudge, "first_signal")
    step.expect("the second call leaves the file alone", fingerprint(CHECKLIST), before)
    step.expect("six boxes to tick", _boxes(), 6)


def bad_options(step: Step, agent: SimpleNamespace) -> None:
    """A wrong option is refused with what would be right."""
    before = dict(agent_onboarding._config)
    unknown = ValueError(f"Unknown configuration option: 'colour'. Valid options: {OPTIONS}")
    step.refused(unknown, agent_onboarding.configure, colour="red")
    step.refused(ValueError("Option 'market_id' expects int, got str."), agent_onboarding.configure, market_id="7")
    step.refused(ValueError("market_id must be a positive integer."), agent_onboarding.configure, market_id=0)
    step.expect("no option has changed", agent_onboarding._config, before)


def secrets_kept(step: Step, agent: SimpleNamespace) -> None:
    """No key or token is in anything that was shown above."""
    step.did("searched the output of the steps above for the two keys and the token")
    step.expect_unseen(agent.key, _content("~/third/wallet.key"), agent.token)


def _content(path: str) -> Secret:
    return Secret(Path(path).expanduser().read_text(encoding="ascii"))


def _boxes() -> int:
    return Path(CHECKLIST).expanduser().read_text(encoding="utf-8").count("- [ ] ")


#: Windows has no modes that keep others out, and lets few users make a symbolic link.
WHERE_MODES_ARE = (loose_permissions, symbolic_link) if os.name == "posix" else ()
STEPS = (
    first_registration,
    used_invite_code,
    return_of_the_agent,
    login,
    *WHERE_MODES_ARE,
    directory,
    no_server,
    checklist,
    nudge,
    bad_options,
    secrets_kept,
)

if __name__ == "__main__":
    with local_service("--invite-code", "WELCOME", "--invite-code", "SPARE") as url:
        run_chapter("Registration and login", STEPS, SimpleNamespace(url=url))
