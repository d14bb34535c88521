"""The settings file: what it overrides, and what overrides it."""

from math import inf
from pathlib import Path

from support.cases import Case, call, checked, given

HOME, FILE = {"_settings_path": "HOME/.sablecrest/settings.yaml"}, {"_settings_path": "HERE/s.yaml"}
INCOMPLETE = {"sync_http_transport": "h2", "server_url": "f", "market_id": 7}
URLS = {"server_url": "f", "signal_service_url": "g", "invite_code": "c"}
apply = call("_apply_file_settings", "s.yaml")


def loaded(settings):
    find = lambda settings_path, ensure: {False: Path("d")}[ensure]  # noqa: E731
    return given(load_settings=lambda path, ensure: {False: settings}[ensure], resolve_data_dir=find)


# fmt: off
#: What the file says, the options before, and what changes.
RULES = [
    ("server_url: 6", {"server_url": "set"}, {}),
    ("{server_url: 6, signal_service_url: 7}", {}, {"server_url": "6", "signal_service_url": "7"}),
    ("signal_service_url: f", {"signal_service_url": "set"}, {}),
    ("invite_code:", {"invite_code": "set"}, {"invite_code": None}),
    ("", {"invite_code": "set", "market_id": 5}, {}),
    ("market_id: '7'", {"market_id": 5}, {"market_id": 7}),
    ("market_id: abc", {}, {"market_id": "abc"}),
    ("market_id: []", {}, {"market_id": []}),
    ("data_dir: d", {}, {"data_dir": "HERE/d"}),
    ("data_dir: d", {"data_dir": "set"}, {}),
    ("{sync_http_transport: h2, sync_max_concurrency: '9'}", {"sync_http_chunk_bytes": 1},
     {"sync_http_transport": "h2", "sync_max_concurrency": "9", "sync_http_chunk_bytes": 64 * 1024 * 1024}),
]
ROWS = [
    *(Case(f"{text} over {options}", given({"s.yaml": text}, config=options), apply, config=FILE | changes)
      for text, options, changes in RULES),
    Case("no file, no settings", given(), call("_apply_file_settings"), config=HOME),
    Case("at home", given(), call("_apply_file_settings", Path("~/a/../b")), config={"_settings_path": "HOME/b"}),
    Case("the market fails after what goes before", loaded(URLS | {"market_id": inf}), apply, raises=OverflowError,
         config=FILE | URLS),
    Case("a sync setting is missing", loaded(INCOMPLETE), apply, raises=KeyError("sync_http_chunk_bytes"),
         config=FILE | INCOMPLETE | {"data_dir": "d"}),
    *(Case(f"{url} serves signals", given(config={"signal_service_url": signal, "server_url": server}),
           call("_configured_signal_service_url"), url)
      for signal, server, url in (("a", "b", "a"), ("", "b", "b"), (None, "", "https://api.sablecrest.example"))),
]
# fmt: on
test_settings_are_applied_by_their_rules = checked(ROWS)
