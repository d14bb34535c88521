"""HEARTBEAT.md: where it is found, the checklist and the milestone lines."""

import os

from differential import Scenario, agree, write

LINE = "- [ ] [SableCrest] First signal found! Check status for details."
CONTENTS = ["", "text", "é\n", "# a\n## [SableCrest] b\n", LINE + "\nx", "\udcff", "a\r\nb\r"]


def below(*files, start):
    def prepare(module, patch):
        os.makedirs(start)
        for file in files:
            write(file, file)
        os.chdir(start)

    return prepare


def holding(content="x", **options):
    return lambda m, _: (write("HEARTBEAT.md", content), m._config.update(options))


WORKSPACES = {
    **{repr(content): holding(content) for content in CONTENTS},
    "switched off": holding(auto_heartbeat=0),
    "no switch": lambda m, _: (write("HEARTBEAT.md"), m._config.pop("auto_heartbeat")),
    "none": lambda *_: os.chdir("/"),
    "directory": lambda *_: os.mkdir("HEARTBEAT.md"),
    "three up": below("HEARTBEAT.md", start="a/b/c"),
    "four up": below("HEARTBEAT.md", start="a/b/c/d"),
    "nearest": below("HEARTBEAT.md", "a/b/HEARTBEAT.md", start="a/b/c"),
    "deleted": lambda *_: (below(start="deleted")(*_), os.rmdir("../deleted")),
}
CALLS = {
    "inject": lambda m: m.inject_heartbeat(),
    "nudge": lambda m: m.update_nudge("first_signal", era=7),
    "all": lambda m: [CALLS[call](m) for call in ("nudge", "inject", "inject", "nudge")],
    "unknown": lambda m: m.update_nudge("colour"),
    "unhashable": lambda m: m.update_nudge([]),
    "relative": lambda m: m.inject_heartbeat("c"),
    "bytes": lambda m: m.inject_heartbeat(b"."),
    "fragment": lambda m: m.get_agents_md_fragment(),
}
SCENARIOS = [
    *(Scenario(f"{call} {name}", WORKSPACES[name], CALLS[call]) for name in WORKSPACES for call in ("inject", "nudge")),
    *(Scenario(name, holding(), call) for name, call in CALLS.items()),
]


def test_workspace_is_edited_as_in_plain_python(scenario, directory):
    agree(scenario, directory)
