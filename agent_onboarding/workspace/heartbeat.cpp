/// \file The monitoring checklist in the workspace's `HEARTBEAT.md`.
#include "parts.hpp"
#include "shared/files.hpp"
#include "shared/log_failure.hpp"
#include "shared/options.hpp"
#include "workspace/texts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

constexpr int directories_searched = 4;  // the start and up to three parents

Object find_heartbeat(Module m, const Object& working_dir) {
    Object directory = working_dir.is_none() ? m.call<"os.getcwd">() : working_dir;
    for (int i = 0; i < directories_searched; ++i) {
        Object candidate = m.call<"os.path.join">(directory, "HEARTBEAT.md"_s);
        if (truth(m.call<"os.path.exists">(candidate))) return candidate;
        Object parent = m.call<"os.path.dirname">(directory);
        if (parent == directory) break;
        directory = std::move(parent);
    }
    return none;
}

Object with_section(Module m, const Object& content) {
    Object extended = content;
    if (truth(content) && !ends_with(content, "\n"_s)) extended = extended + "\n"_s;
    return extended + ("\n"_s + m.get<"_HEARTBEAT_STATIC_SECTION">());
}

Object inject_heartbeat(Module m, const Object& working_dir) {
    if (!truth(option<"auto_heartbeat">(m, true))) return none;
    const Object path = m.call<"_find_heartbeat">(working_dir);
    if (path.is_none()) return none;

    const auto content =
        log_failure(m, [&] { return read_text(m, path); }, "Failed to read HEARTBEAT.md at %s: %s"_s, path);
    if (!content.has_value() || contains(*content, "## [SableCrest]"_s)) return none;

    const Object extended = with_section(m, *content);
    log_failure(m, [&] { return write_text(m, path, extended); }, "Failed to write HEARTBEAT.md at %s: %s"_s, path);
    return none;
}

}  // namespace

Object make_heartbeat_section(Module) { return from_utf8(texts::heartbeat_section); }

PyMethodDef functions::heartbeat[] = {
    def<"_find_heartbeat(working_dir=None)", find_heartbeat,
        "Search for HEARTBEAT.md in cwd + up to 3 parent directories.\n"
        "\n"
        "Returns the path to HEARTBEAT.md if found, None otherwise.">(),
    def<"inject_heartbeat(working_dir=None)", inject_heartbeat,
        "Called by register() and search_templates during search startup.\n"
        "\n"
        "Searches the current directory (or working_dir, str) and up to three parents for HEARTBEAT.md\n"
        "and appends the checklist section if it is not already present. Creates no file. Does nothing when the\n"
        "auto_heartbeat option is off. A file that cannot be read or written is logged as a warning, not raised.">(),
    {}};

}  // namespace agent_onboarding
