"""The settings file: what it overrides, and what overrides it."""

from collections import UserDict
from itertools import product
from pathlib import Path

from differential import Scenario, agree

SYNC = {"sync_http_transport": "http2", "sync_http_chunk_bytes": 1, "sync_max_concurrency": 2}
URLS = product(["https://signal", "", None], ["https://server", None])
#: What the file holds, the options before, the path of the file.
CASES = [
    (UserDict(SYNC), {"sync_max_concurrency": 99}, None),
    (SYNC | {"server_url": "https://file", "signal_service_url": 6}, {}, "~/s.yaml"),
    (SYNC | {"server_url": "https://file"}, {"server_url": "https://set"}, Path("s.yaml")),
    (SYNC | {"server_url": "", "signal_service_url": ""}, {"data_dir": "set"}, None),
    (SYNC | {"signal_service_url": "https://file"}, {"signal_service_url": "https://set"}, None),
    (SYNC | {"invite_code": None}, {"invite_code": "set", "market_id": 5}, None),
    *((SYNC | {"market_id": id_, "invite_code": "file"}, {}, None) for id_ in ("7", "abc", 0, 1.5, [], 1e999)),
    ({"sync_http_transport": "incomplete"}, {}, None),
    *(({}, {"signal_service_url": signal, "server_url": server}, None) for signal, server in URLS),
]


def scenario(settings, options, path):
    def prepare(module, patch):
        vars(module)["load_settings"] = lambda path, ensure: settings
        module._config.update(options)

    name = repr((settings.keys() - SYNC, settings.get("market_id"), options))
    call = (lambda m: m._apply_file_settings(path)) if settings else lambda m: m._configured_signal_service_url()
    return Scenario(name, prepare, call)


SCENARIOS = [scenario(*case) for case in CASES]


def test_settings_are_applied_as_in_plain_python(scenario, directory):
    agree(scenario, directory)
