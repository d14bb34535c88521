"""The milestone lines, and the fragment for AGENTS.md."""

from support.cases import Case, call, checked, given, raising

FILE = "HEARTBEAT.md"
# fmt: off
LINES = {
    "discovery_rate_declining": "Search discovery rate has dropped significantly. Run analytics and consider adjusting "
                                "your template.",
    "era_change": "New era detected. Your search will pause for re-sync. Check status after sync completes.",
    "first_signal": "First signal found! Check status for details.",
    "10_signals": "10 signals found. Review analytics to see which functions/features work best.",
    "strategy_unlock": "Strategy search unlocked! You can now search for Strategies.",
}
FRAGMENT = """## SableCrest Integration
- Skills: Provided via `sablecrest.list_skills()` (returns bundle SKILL.md paths)
- Tools: register, search, stop, status, analytics (via Python API)
- Heartbeat: Auto-injected monitoring checklist
"""
LINE, nudge = f"- [ ] [SableCrest] {LINES['first_signal']}", call("update_nudge", "first_signal")
NUDGED = [
    *(Case(name, given({FILE: "x\n"}), call("update_nudge", name, era=7),
           files={FILE: f"x\n- [ ] [SableCrest] {text}\n"}) for name, text in LINES.items()),
    Case("the last line is ended first", given({FILE: "é"}), nudge, files={FILE: f"é\n{LINE}\n"}),
    Case("an empty file gets an empty line", given({FILE: ""}, _config={}), nudge, files={FILE: f"\n{LINE}\n"}),
    Case("a line that is there is not repeated", given({FILE: f"x {LINE} y"}), nudge),
    Case("another trigger is ignored", given({FILE: ""}), call("update_nudge", "colour"), calls=""),
    Case("it is switched off", given({FILE: ""}, config={"auto_heartbeat": 0}), nudge, calls=""),
    Case("there is no file", given(), nudge),
    Case("no text", given({FILE: b"\xff"}), nudge, log=[("WARNING", "update_nudge failed: %s", UnicodeDecodeError)]),
    Case("an interruption", given(_find_heartbeat=raising(KeyboardInterrupt)), nudge, raises=KeyboardInterrupt),
    Case("the fragment for AGENTS.md", given(), call("get_agents_md_fragment"), FRAGMENT),
]
# fmt: on
test_milestones_are_appended_once = checked(NUDGED)
