"""`configure`: each option taken and refused, and the rotation settings that it writes."""

from pathlib import Path

from differential import Scenario, agree, write

VALUES = {
    "auto_heartbeat": (False, 1),
    "data_dir": ("x", Path("~/x"), "", 5),
    "server_url": (" https://host/ ", "host", None),
    "signal_service_url": ("", None),
    "invite_code": ("", None, 5),
    "sync_max_concurrency": (-1, True, "1"),
    "named_universe": (" u ", "...", "  ", ".", " .. ", "a/b", "a\\b", "a\0b", 5),
    "market_id": (7, True, 0, False, -1, "3"),
    "feature_budget_gb": (1, 1.5, "1"),
    "colour": (1,),
}
SEVERAL = {"named_universe": "u", "family": "f", "rotation_frequency": "daily", "market_id": 3}
STORED = ("{}", "[", '{"market": "m", "named_universes": ["a"], "rotation_seed": 3}')
CALLS = [
    *(({option: value}, None) for option, values in VALUES.items() for value in values),
    *((SEVERAL, stored) for stored in STORED),
    ({"sync_http_chunk_bytes": 5, "auto_heartbeat": False, "market_id": -1}, None),
    ({"rotation_seed": 7, "market": "m", "named_universes": ["a"]}, None),
    ({}, None),
]


def scenario(options, stored):
    def prepare(module, patch):
        module._config["data_dir"] = "data"
        if stored is not None:
            write("data/rotation_settings.json", stored)

    return Scenario(f"{options} {stored}", prepare, lambda m: m.configure(**options))


SCENARIOS = [scenario(*call) for call in CALLS]


def test_options_are_applied_as_in_plain_python(scenario, directory):
    agree(scenario, directory)
