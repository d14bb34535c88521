/// \file Named universes: which names are safe, and which of them an era allows, in order and without duplicates.
#include "parts.hpp"
#include "surface/path_segment.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object safe_named_universe(Module, const Object& value) {
    if (value.is_none()) return none();
    Object name = strip(str(value));
    if (!truth(name) || !is_safe_path_segment(name)) return none();
    return name;
}

Object safe_name(Module m, const Object& value) {
    return call_own<"_safe_named_universe", safe_named_universe>(m, functions::safe_universe[0], value);
}

Object append_unique_named_universe(Module m, const Object& values, const Object& value) {
    const Object name = safe_name(m, value);
    if (truth(name) && !contains(values, name)) append(values, name);
    return none();
}

Object append_unique(Module m, const Object& values, const Object& value) {
    return call_own<"_append_unique_named_universe", append_unique_named_universe>(m, functions::named_universes[0],
                                                                                   values, value);
}

Object append_allowed_named_universes(Module m, const Object& values, const Object& raw) {
    if (!raw.is_list())
        append_unique(m, values, raw);
    else
        for (const Object& item : iterate(raw)) append_unique(m, values, item);
    return none();
}

/// A growing list of unique names with a set beside it, so that a name costs the same however many there are. It gives
/// way to the module's own functions once one of them is rebound, and to a search of the list for odd strings.
class Candidates {
public:
    explicit Candidates(Module m) : m_(m) {}

    [[nodiscard]] const Object& names() const noexcept { return names_; }

    void append(const Object& value) {
        is_direct_ = is_direct_ && is_bound(m_, functions::safe_universe[0], dotted_name<"_safe_named_universe">) &&
                     is_bound(m_, functions::named_universes[0], dotted_name<"_append_unique_named_universe">);
        if (!is_direct_) {
            m_.call<"_append_unique_named_universe">(names_, value);
            return;
        }
        const Object name = safe_named_universe(m_, value);
        if (name.is_none()) return;
        is_direct_ = name.is_plain_str();
        if (contains(is_direct_ ? seen_ : names_, name)) return;
        if (is_direct_) add(seen_, name);
        py::append(names_, name);
    }

    void append_allowed(const Object& raw) {
        if (!is_bound(m_, functions::named_universes[1], dotted_name<"_append_allowed_named_universes">)) {
            is_direct_ = false;
            m_.call<"_append_allowed_named_universes">(names_, raw);
        } else if (raw.is_list()) {
            for (const Object& item : iterate(raw)) append(item);
        } else {
            append(raw);
        }
    }

private:
    Module m_;
    Object names_ = list();
    Object seen_ = set();
    bool is_direct_ = true;
};

void append_listed(Candidates& candidates, const Object& universes) {
    for (const Object& universe : iterate(universes)) {
        if (!universe.is_dict()) {
            candidates.append(universe);
            continue;
        }
        Object name = universe.lookup<"named_universe">();
        if (!truth(name)) name = universe.lookup<"id">();
        if (!truth(name)) name = universe.lookup<"name">();
        candidates.append(name);
    }
}

Object active_era_named_universe_candidates(Module m, const Object& era) {
    Candidates candidates{m};
    candidates.append(era.lookup<"named_universe">());
    candidates.append_allowed(era.lookup<"allowed_named_universes">());

    const Object pools = era.lookup<"signal_pools">();
    if (pools.is_list())
        for (const Object& pool : iterate(pools))
            if (pool.is_dict()) candidates.append_allowed(pool.lookup<"allowed_named_universes">());

    const Object universes = era.lookup<"universes">();
    if (universes.is_list())
        append_listed(candidates, universes);
    else if (universes.is_dict())
        for (const Object& name : iterate(sorted(universes))) candidates.append(name);
    return candidates.names();
}

/// The first safe name of a list, or of a single value.
Object first_safe(Module m, const Object& allowed) {
    if (!allowed.is_list()) return safe_name(m, allowed);
    for (const Object& item : iterate(allowed)) {
        Object name = safe_name(m, item);
        if (truth(name)) return name;
    }
    return none();
}

/// The pools come before what the configuration itself allows.
Object first_allowed_named_universe_from_era_config(Module m, const Object& era_config) {
    if (!era_config.is_dict()) return none();

    const Object pools = era_config.lookup<"signal_pools">();
    if (pools.is_list())
        for (const Object& pool : iterate(pools)) {
            if (!pool.is_dict()) continue;
            Object name = first_safe(m, pool.lookup<"allowed_named_universes">());
            if (truth(name)) return name;
        }
    Object name = first_safe(m, era_config.lookup<"allowed_named_universes">());
    if (truth(name)) return name;
    return m.get<"_safe_named_universe">()(era_config.lookup<"named_universe">());
}

}  // namespace

PyMethodDef functions::safe_universe[] = {def<"_safe_named_universe(value)", safe_named_universe>(), {}};

PyMethodDef functions::named_universes[] = {
    def<"_append_unique_named_universe(values, value)", append_unique_named_universe>(),
    def<"_append_allowed_named_universes(values, raw)", append_allowed_named_universes>(),
    def<"_active_era_named_universe_candidates(era)", active_era_named_universe_candidates>(),
    def<"_first_allowed_named_universe_from_era_config(era_config)", first_allowed_named_universe_from_era_config>(),
    {}};

}  // namespace agent_onboarding
