"""HEARTBEAT.md: where it is found, and the checklist that is appended to it once."""

import os

from support.cases import Case, call, checked, given, raising

FILE = "HEARTBEAT.md"
SECTION = """\
## [SableCrest] Search Monitoring

Check these items to stay on top of your signal search:

- [ ] **Search status**: Run `sablecrest.search_status()` — is the search running? Any errors to address?
- [ ] **Discovery rate check**: Run `sablecrest.get_search_velocity()` — is your signals-per-hour trending up, stable, \
or declining?
- [ ] **Suggestions**: Run `sablecrest.get_suggestions()` — are there underexplored function families or \
high-potential features to focus on?
- [ ] **Milestone check**: How many signals have you found? Any new milestones (first signal, 10th signal, Strategy \
unlock at 100)?
- [ ] **Strategy review**: If discovery rate is declining, consider: restarting with a different template, increasing \
n_jobs, or creating a custom template focused on high-potential areas.
"""
inject = call("inject_heartbeat")


def within(start, *files):
    return lambda module, patch: [given(dict.fromkeys(files, ""))(module, patch), os.makedirs(start), os.chdir(start)]


def open_but(mode, error):
    return lambda path, asked, encoding: (raising(error, 13) if asked == mode else open)(path, asked, encoding=encoding)


def warning(what, error):
    return [("WARNING", f"Failed to {what} HEARTBEAT.md at %s: %s", f"HERE/{FILE}", error)]


# fmt: off
INJECTED = [
    Case("an empty line goes before it", given({FILE: "é\n"}), inject, files={FILE: f"é\n\n{SECTION}"}),
    Case("the marker anywhere is enough", given({FILE: "a\n## [SableCrest] b"}), inject),
    Case("a milestone is no marker, and the last line is ended first", given({FILE: "[SableCrest]"}), inject,
         files={FILE: f"[SableCrest]\n\n{SECTION}"}),
    Case("it is switched off", given({FILE: ""}, config={"auto_heartbeat": 0}), inject),
    Case("nothing is said of it", given({FILE: ""}, _config={}), inject, files={FILE: f"\n{SECTION}"}),
    Case("there is no file", given(), inject),
    Case("no text", given({FILE: b"\xff"}), inject, log=warning("read", UnicodeDecodeError)),
    Case("no right", given({FILE: ""}, open=open_but("w", OSError)), inject, log=warning("write", OSError(13))),
    *(Case(f"an interruption in mode {mode}", given({FILE: ""}, open=open_but(mode, KeyboardInterrupt)), inject,
           raises=KeyboardInterrupt(13)) for mode in "rw"),
    Case("three folders up", within("a/b/c", FILE), call("_find_heartbeat"), f"HERE/{FILE}"),
    Case("not four folders up", within("a/b/c/d", FILE), call("_find_heartbeat")),
    Case("the nearest", within("a/b/c", FILE, f"a/b/{FILE}"), call("_find_heartbeat"), f"HERE/a/b/{FILE}"),
    Case("a relative folder ends at the current one", given(), call("_find_heartbeat", ""),
         calls=f"os.path.join('', '{FILE}')  os.path.exists('{FILE}')  os.path.dirname('')"),
]
# fmt: on
test_checklist_is_appended_once_to_the_nearest_file = checked(INJECTED)
