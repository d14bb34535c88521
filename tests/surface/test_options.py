"""`configure`: each option taken and refused, and the rotation settings that it writes."""

import os
import sys
from json import dumps
from pathlib import Path
from types import ModuleType, SimpleNamespace
from unittest.mock import MagicMock

import sablecrest
from support.cases import FOLDER, Case, checked, given

# fmt: off
VALID = ("algorithm, auto_heartbeat, data_dir, family, feature_budget_gb, invite_code, market, market_id, "
         "named_universe, named_universes, rotation_frequency, rotation_seed, server_url, signal_service_url, "
         "subfamily, sync_http_chunk_bytes, sync_http_transport, sync_max_concurrency")
#: What is given, and what is stored then.
STORED = [
    ("auto_heartbeat", False, False), ("data_dir", " x ", " x "), ("data_dir", Path("~/x"), os.path.join("~", "x")),
    ("server_url", " https://host/ ", "https://host"), ("named_universe", " u ", "u"), ("market_id", True, True),
]
REFUSED = [
    ("data_dir", "", "data_dir cannot be empty."),
    ("server_url", "host", "Server URL must be an http or https URL of a host, without user name, query or fragment."),
    ("invite_code", 5, "Option 'invite_code' expects str or NoneType, got int."),
    ("named_universe", " \t", "named_universe cannot be empty."),
    *(("named_universe", name, "named_universe must be a single safe path segment.")
      for name in (".", " .. ", "a/b", "a\\b", "a\0b")),
    ("market_id", "3", "Option 'market_id' expects int, got str."),
    ("market_id", 0, "market_id must be a positive integer."),
    ("colour", 1, f"Unknown configuration option: 'colour'. Valid options: {VALID}"),
]
CONTEXT = "{'current_market': 'crypto', 'market': 'crypto', 'current_universes': ['u'], 'named_universes': ['u']}"
# fmt: on


def configure(**options):
    return lambda m: m.configure(**options)


# The file that holds these.
def rotation(**settings):
    return {"data/rotation_settings.json": dumps(settings, indent=2) + "\n"}


# A package that has these names, but not the sibling; and a data directory that would be refused later.
def without_sibling(**names):
    vars(package := ModuleType("p")).update(names)
    return lambda module, patch: [module._config.update(data_dir=5), patch.setitem(sys.modules, "sablecrest", package)]


CIRCLE = "partially initialized module 'p' (most likely due to a circular import) (f)"
#: Names of the package that lacks the sibling, what the ImportError says it is, and its `name` and `path`.
PACKAGES = [
    ({}, "'p' (unknown location)", "p", None),
    ({"__file__": "f"}, "'p' (f)", "p", "f"),
    ({"__file__": "f", "__spec__": SimpleNamespace(_initializing=True)}, CIRCLE, "p", "f"),
    ({"__name__": 5, "__file__": 5}, "'<unknown module name>' (unknown location)", None, None),
]
ROTATION_DEFAULTS = rotation(family="f", market="crypto", named_universes=["default"], rotation_seed=0)
# fmt: off
ROWS = [
    *(Case(f"{k} {v!r} is stored", given(), configure(**{k: v}), config={k: stored}) for k, v, stored in STORED),
    *(Case(f"{k} {v!r} is refused", given(), configure(**{k: v}), raises=ValueError(why)) for k, v, why in REFUSED),
    Case("those before a refused one are in force, but in no file", given(config={"data_dir": "data"}),
         configure(family="f", market_id=-1, invite_code="c"), raises=ValueError, config={"family": "f"}),
    Case("the defaults of rotation are filled in", given(config={"data_dir": "data"}), configure(family="f"),
         config={"family": "f"}, files={"data": FOLDER} | ROTATION_DEFAULTS),
    Case("what the file of rotation holds is kept", given(rotation(market="m", family="x", named_universes=["a"],
         rotation_seed=3), config={"data_dir": "data", "named_universe": "u"}),
         configure(family="f", auto_heartbeat=False), config={"family": "f", "auto_heartbeat": False},
         files=rotation(market="m", family="f", named_universes=["a"], rotation_seed=3),
         calls=f"""os.fspath('data')  _canonical_data_dir('data')  os.makedirs('HERE/data', exist_ok=True)
         _rotation_settings.settings_path_for_data_dir('HERE/data')
         _rotation_settings.load_rotation_settings('HERE/data', catalog_context={CONTEXT})
         load_rotation_settings.model_dump()  _rotation_settings.write_rotation_settings('HERE/data', \
{{'market': 'm', 'family': 'f', 'named_universes': ['a'], 'rotation_seed': 3}})"""),
    *(Case(f"the sibling that writes it is missing from {text}", without_sibling(**names), configure(family="f"),
           config={"family": "f"}, raises=ImportError(f"cannot import name '_rotation_settings' from {text}",
           name=name, path=path)) for names, text, name, path in PACKAGES),
    Case("it is not asked for others", without_sibling(), configure(invite_code="c"), config={"invite_code": "c"}),
]
# fmt: on
test_options_are_checked_and_stored_one_by_one = checked(ROWS)


def test_each_list_of_universes_that_is_handed_out_is_another(module, monkeypatch, tmp_path):
    monkeypatch.setattr(sablecrest, "_rotation_settings", sibling := MagicMock())
    sibling.load_rotation_settings.return_value.model_dump.return_value = {}
    module.configure(data_dir=tmp_path, named_universe="u", family="f")
    catalog = sibling.load_rotation_settings.call_args.kwargs["catalog_context"]
    written = sibling.write_rotation_settings.call_args.args[1]
    lists = [catalog["current_universes"], catalog["named_universes"], written["named_universes"]]
    assert (lists, len({*map(id, lists)})) == ([["u"]] * 3, 3)
