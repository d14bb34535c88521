"""The assembly of the local runtime, each call with its arguments in order; its sync manager that never syncs."""

import re

from sablecrest import _runtime, obfuscation, search_tracking
from support.cases import Case, call, checked, given, raising


class Part:
    """What a call made, with its arguments; shown by the last word of the name of what was called."""

    def __init__(self, name, args, parts):
        vars(self).update(parts, name=name.rpartition("_")[2], args=args)

    def __repr__(self):
        return self.name

    def register_module_consumer(self, module_name, consumer, attribute_name):
        pass


def make(*names):
    return {name: lambda *args, _name=name, **parts: Part(_name, args, parts) for name in names}


PAYLOAD, MODULES = "_read_manifest_payload_with_signals_index", "_load_runtime_modules_from_manifest"
INDEX = {"found_signals": {"s": 1}, "found_strategies": [], "useful_signals": {"w": 2}, "signals_index": "the index"}
INDEX["era_number"] = "12"
OWN = make("_read_manifest", "_manifest_files", "_load_per_era_backtester", "create_runtime_freshness_guard")
OWN |= make("SimpleNamespace", "_LocalRuntimeSyncManager") | {MODULES: lambda *_: {"vault": "old", "era_data": "new"}}
STEPS = [name for name in vars(_runtime) if re.match("_[a-z]+_|_[A-Z]|LibraryRuntime|RuntimeEvaluation", name)]
bootstrap = call("_bootstrap_local_runtime_from_config", "AUTH")
HELPERS = ("batch_orchestrator_cls", "compute_search_plan", "expression_type_cls", "expression_evaluator")


def stage(own=(), batch=lambda: HELPERS, **config):
    """Named parts in place of the real ones, and what assembles them."""

    def prepare(module, patch):
        options = {"data_dir": "data", "named_universe": "u", "market_id": 7, "_settings_path": "SETTINGS"} | config
        given({"data/features/u/vocabulary.json": "{}"}, config=options, **OWN | dict(own))(module, patch)
        vars(_runtime).update(make(*STEPS) | {"_import_batch_runtime": batch, PAYLOAD: lambda data_dir: INDEX})
        vars(obfuscation).update(make("load_vocabulary"))
        vars(search_tracking).update(make("SearchTracker"))

    return prepare


def helpers(m):
    evaluator = (runtime := bootstrap(m)).evaluator
    return {getattr(evaluator, name) for name in HELPERS}, runtime.graph_validator is evaluator.graph_validator


def universes(m):
    named = (runtime := bootstrap(m)).named_universes, runtime.default_named_universe, runtime.feature_dirs
    vocabularies = [*runtime.vocabularies, str(runtime.vocabulary_raw)]
    return *named, [*runtime.manifest_adapters], vocabularies, runtime.evaluator.named_universe


def vault_of(m):
    return bootstrap(m).vault.args[0].vault_module


def manage(m):
    manager = m._LocalRuntimeSyncManager("the manifest", runtime_freshness_guard="the guard")
    answers = manager.get_manifest(), type(manager).acquire("any self"), manager.release(), manager.request_for_sync()
    return answers, manager.register_era_callback(print), manager.unregister_era_callback("unknown"), vars(manager)


#: A call goes on in the next line where a line ends with a comma.
CALLS = """_canonical_data_dir('data')  _local_vocabulary_path('HERE/data', 'u')
    obfuscation.load_vocabulary('HERE/data/features/u/vocabulary.json')  create_runtime_freshness_guard('HERE/data')
    _read_manifest('HERE/data')  _read_manifest_payload_with_signals_index('HERE/data')
    _load_runtime_modules_from_manifest('HERE/data', manifest)  _manifest_files(manifest)  SECTIONS
    SimpleNamespace(era_number=12, files=files, signals_index='the index', found_signals={'s': 1},
    found_strategies={}, useful_signals={'w': 2})  _LocalRuntimeSyncManager(SimpleNamespace,
    runtime_freshness_guard=guard)  _runtime._load_vault_module('HERE/data', vault_module='new')
    _runtime._normalize_era_config('configured', 12, manifest=SimpleNamespace)  _runtime._wrap_synced_vault(module,
    manifest=SimpleNamespace, era_config=config)  _runtime._initialize_vault_for_backtester_import(vault,
    data_dir='HERE/data', auth='AUTH')  _load_per_era_backtester('HERE/data', market_id=7, era_number=12,
    era_config=config)  _runtime._build_function_registry(vocabulary)  _runtime._import_batch_runtime()
    _runtime.RuntimeEvaluationAdapter(data_dir='HERE/data', era_config=config, raw_backtester=backtester,
    vault=vault, manifest=SimpleNamespace, graph_validator=None, HELPERS, registry=registry,
    raw_vocabulary=vocabulary, named_universe='u', auth='AUTH', runtime_freshness_guard=guard)
    create_runtime_freshness_guard.register_module_consumer('backtester', RuntimeEvaluationAdapter, 'raw_backtester')
    search_tracking.SearchTracker('HERE/data', settings_path='SETTINGS')  os.path.join('HERE/data', 'features', 'u')
    _runtime._RuntimeManifestAdapter(feature_epoch='signal_is', named_universe='u', era_config=config)
    _configured_signal_service_url()  _runtime._EraThreadProxy(12)  _runtime._SearchEraConfig(config)
    _runtime.LibraryRuntime(auth='AUTH', auth_proxy='AUTH', data_dir='HERE/data',
    server_url='https://api.sablecrest.example', sync_manager=LocalRuntimeSyncManager, era_number=12,
    era_thread=EraThreadProxy, era_config=config, search_era_config=SearchEraConfig, named_universes=['u'],
    default_named_universe='u', vocabularies={'u': vocabulary}, feature_dirs={'u': 'HERE/data/features/u'},
    manifest_adapters={'u': RuntimeManifestAdapter}, vocabulary_raw=vocabulary, registry=registry, vault=vault,
    raw_backtester=backtester, evaluator=RuntimeEvaluationAdapter, search_tracker=SearchTracker,
    runtime_freshness_guard=guard)  _runtime._build_graph_validator(registry)
    create_runtime_freshness_guard.register_module_consumer('backtester', LibraryRuntime, 'raw_backtester')"""
CALLS = re.sub(r",\s+", ", ", CALLS.replace("HELPERS", ", ".join(f"{name}={name!r}" for name in HELPERS)))
SECTIONS = (f"_manifest_payload_mapping_or_empty({INDEX}, {name!r})" for name in INDEX if name.startswith(("f", "u")))
CALLS = CALLS.replace("SECTIONS", "  ".join(SECTIONS))
UNHELPED = "Batch runtime import failed during local bootstrap; continuing without batch orchestration helpers: %s"
POOLS = {"signal_pools": [{"allowed_named_universes": [".", "u"]}]}
U = {"u": "HERE/data/features/u"}, ["u"], ["u", "vocabulary"], "u"
W = {"w": "HERE/data/features/w"}, ["w"], ["None"], "w"
#: The options, and then the runtime's universes, its default, what it has for them, and the evaluator's universe.
UNIVERSES = [
    ({"named_universes": ("w", "u")}, ["w", "u"], "u", *U),
    ({"named_universe": "w", "era_config": POOLS}, ["w"], "w", *W),
    ({"named_universe": "", "era_config": POOLS}, ["u"], "u", *U),
    ({"named_universe": "", "era_config": [POOLS], "named_universes": ["w"]}, [], None, {}, [], ["None"], ""),
]
MANAGED = {"_manifest": "the manifest", "_vocabulary": {}, "runtime_freshness_guard": "the guard"}
ROWS = [
    Case("a manager that never syncs", given(), manage, (("the manifest", None, None, []), None, None, MANAGED)),
    Case("whole", stage(era_config="configured"), lambda m: str(bootstrap(m)), "LibraryRuntime", calls=CALLS),
    *(Case(f"unhelped by {error}", stage(batch=batch), helpers, ({None}, True),
           log=[("WARNING", UNHELPED, error)]) for batch, error in ((raising(KeyError), KeyError), (str, ValueError))),
    Case("interrupted", stage(batch=raising(KeyboardInterrupt)), bootstrap, raises=KeyboardInterrupt),
    Case("no era", stage({PAYLOAD: lambda data_dir: {}}), bootstrap, raises=TypeError),
    *(Case(f"{options}", stage(**options), universes, tuple(seen)) for options, *seen in UNIVERSES),
    *(Case(f"{found}", stage({MODULES: lambda *_, found=found: found}), vault_of, vault)
      for found, vault in (({}, None), ({"vault": 1}, 1), ({"era_data": 0, "vault": 1}, 0))),
]  # fmt: skip


test_runtime_is_assembled_in_order = checked(ROWS)
