/// \file Milestone lines for `HEARTBEAT.md`, and the fragment for `AGENTS.md`.
#include "parts.hpp"
#include "shared/files.hpp"
#include "shared/log_failure.hpp"
#include "shared/options.hpp"
#include "workspace/texts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object append_line_once(Module m, const Object& line) {
    const Object path = m.call<"_find_heartbeat">();
    if (path.is_none()) return none;
    Object content = read_text(m, path);
    if (contains(content, line)) return none;
    if (!ends_with(content, "\n"_s)) content = content + "\n"_s;
    return write_text(m, path, content + (line + "\n"_s));
}

Object update_nudge(Module m, const Object& trigger, const Object& /*context*/) {
    if (!truth(option<"auto_heartbeat">(m, true))) return none;
    if (!contains(m.get<"_NUDGE_TEXTS">(), trigger)) return none;
    const Object line = m.get<"_NUDGE_TEXTS">().item(trigger);
    log_failure(m, [&] { return append_line_once(m, line); }, "update_nudge failed: %s"_s);
    return none;
}

Object get_agents_md_fragment(Module m) { return m.get<"_AGENTS_MD_FRAGMENT">(); }

}  // namespace

Object make_nudge_texts(Module) {
    Object nudges = dict{};
    nudges.set_item<"discovery_rate_declining">(from_utf8(texts::discovery_rate_declining));
    nudges.set_item<"era_change">(from_utf8(texts::era_change));
    nudges.set_item<"first_signal">(from_utf8(texts::first_signal));
    nudges.set_item<"10_signals">(from_utf8(texts::ten_signals));
    nudges.set_item<"strategy_unlock">(from_utf8(texts::strategy_unlock));
    return nudges;
}

Object make_agents_fragment(Module) { return from_utf8(texts::agents_fragment); }

PyMethodDef functions::nudges[] = {
    def<"update_nudge(trigger, **context)", update_nudge,
        "Called by search_templates when nudge trigger conditions are met.\n"
        "\n"
        "Appends the trigger's checklist line to HEARTBEAT.md, once. The triggers (str) are\n"
        "discovery_rate_declining, era_change, first_signal, 10_signals and strategy_unlock; another is ignored, and\n"
        "so is the context. Does nothing when the auto_heartbeat option is off or no HEARTBEAT.md is found in the\n"
        "current directory and its three nearest parents. A failure is logged as a warning, not raised.">(),
    def<"get_agents_md_fragment()", get_agents_md_fragment,
        "Returns ready-made AGENTS.md fragment for Pinwheel workspace setup.">(),
    {}};

}  // namespace agent_onboarding
