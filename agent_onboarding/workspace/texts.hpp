/// \file The long texts of the workspace files.
#pragma once

namespace agent_onboarding::texts {

inline constexpr char heartbeat_section[] =
    "## [SableCrest] Search Monitoring\n"
    "\n"
    "Check these items to stay on top of your signal search:\n"
    "\n"
    "- [ ] **Search status**: Run `sablecrest.search_status()` \u2014 is the search running? Any errors to address?\n"
    "- [ ] **Discovery rate check**: Run `sablecrest.get_search_velocity()` \u2014 is your signals-per-hour trending "
    "up, stable, or declining?\n"
    "- [ ] **Suggestions**: Run `sablecrest.get_suggestions()` \u2014 are there underexplored function families or "
    "high-potential features to focus on?\n"
    "- [ ] **Milestone check**: How many signals have you found? Any new milestones (first signal, 10th signal, "
    "Strategy unlock at 100)?\n"
    "- [ ] **Strategy review**: If discovery rate is declining, consider: restarting with a different template, "
    "increasing n_jobs, or creating a custom template focused on high-potential areas.\n";

inline constexpr char discovery_rate_declining[] =
    "- [ ] [SableCrest] Search discovery rate has dropped significantly. Run analytics and consider adjusting your "
    "template.";
inline constexpr char era_change[] =
    "- [ ] [SableCrest] New era detected. Your search will pause for re-sync. Check status after sync completes.";
inline constexpr char first_signal[] = "- [ ] [SableCrest] First signal found! Check status for details.";
inline constexpr char ten_signals[] =
    "- [ ] [SableCrest] 10 signals found. Review analytics to see which functions/features work best.";
inline constexpr char strategy_unlock[] =
    "- [ ] [SableCrest] Strategy search unlocked! You can now search for Strategies.";

inline constexpr char agents_fragment[] =
    "## SableCrest Integration\n"
    "- Skills: Provided via `sablecrest.list_skills()` (returns bundle SKILL.md paths)\n"
    "- Tools: register, search, stop, status, analytics (via Python API)\n"
    "- Heartbeat: Auto-injected monitoring checklist\n";

}  // namespace agent_onboarding::texts
