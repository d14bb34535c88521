"""The guard, whose loader is the verified one, and the sync manager that never syncs."""

import inspect
import weakref

import pytest
from differential import agree, native, plain
from interpreter import scenario


def guarded(m):
    guard = m.create_runtime_freshness_guard("data")
    return guard._data_dir, guard._module_loader("name", expected_sha256="digest")


SCENARIOS = [scenario("guard", lambda m, _: vars(m).update(_load_manifest_runtime_module=lambda *_, **kw: kw), guarded)]


def test_guard_loads_as_in_plain_python(scenario, directory):
    agree(scenario, directory)


def test_sync_manager_is_that_of_plain_python():
    def show(kind):
        manager = type("Derived", (kind,), {})(runtime_freshness_guard=1, manifest=(manifest := {}))
        methods = [f"{name}{inspect.signature(getattr(manager, name))}" for name in vars(kind) if name[0] != "_"]
        results = [manager.acquire(), manager.release(), manager.register_era_callback(len), manager.request_for_sync()]
        results += [manager.unregister_era_callback(callback=5), manager.get_manifest() is manifest]
        results += [manager.request_for_sync() is manager.request_for_sync(), weakref.ref(manager)() is manager]
        return methods, results, vars(manager), vars(kind(5)), kind.__bases__

    assert show(native._LocalRuntimeSyncManager) == show(plain._LocalRuntimeSyncManager)


def test_sync_manager_is_made_by_what_its_class_binds(monkeypatch):
    kind = native._LocalRuntimeSyncManager
    for refused in (lambda: kind(), lambda: kind(1, 2, 3), lambda: kind(1, manifest=1), lambda: kind(1, colour=1)):
        with pytest.raises(TypeError):
            refused()
    monkeypatch.setattr(kind, "__init__", lambda self, *values, **named: vars(self).update(named, values=values))
    assert vars(kind(1, 2, colour=3)) == {"colour": 3, "values": (1, 2)}
    monkeypatch.undo()
    assert vars(kind(1)) == vars(kind(*[1])) == vars(plain._LocalRuntimeSyncManager(1))
