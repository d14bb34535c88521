/// \file Named universes: which names are safe, and which of them an era allows, in order and without duplicates.
#include "parts.hpp"
#include "shared/path_segment.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object safe_named_universe(Module, const Object& value) {
    if (value.is_none()) return none;
    const Object name = strip(str(value));
    return is_safe_path_segment(name) ? name : none;
}

Object append_unique_named_universe(Module m, const Object& values, const Object& value) {
    const Object name = m.call<"_safe_named_universe">(value);
    if (truth(name) && !contains(values, name)) append(values, name);
    return none;
}

Object append_allowed_named_universes(Module m, const Object& values, const Object& raw) {
    if (!raw.is_list())
        m.call<"_append_unique_named_universe">(values, raw);
    else
        for (const Object& item : iterate(raw)) m.call<"_append_unique_named_universe">(values, item);
    return none;
}

/// The candidates so far. While the functions that append to them are the module's own, a set tells which there are, so
/// that a name costs the same however many came before. Functions that were put in their place get the list.
class Candidates {
public:
    explicit Candidates(Module m) : m_(m) {}

    [[nodiscard]] const Object& values() const noexcept { return values_; }

    void append(const Object& function, const Object& value) {
        is_indexed_ = is_indexed_ && is_function(function, m_, functions::named_universes[1]) &&
                      is_function(m_.get<"_safe_named_universe">(), m_, functions::named_universes[0]);
        if (!is_indexed_) {
            invoke{function, values_, value};
            return;
        }
        const Object name = safe_named_universe(m_, value);
        is_indexed_ = name.is_none() || name.is_exact_str();
        if (!truth(name) || contains(is_indexed_ ? index_ : values_, name)) return;
        if (is_indexed_) add(index_, name);
        py::append(values_, name);
    }
    void append(const Object& value) { append(m_.get<"_append_unique_named_universe">(), value); }

    void append_allowed(const Object& function, const Object& raw) {
        if (!is_function(function, m_, functions::named_universes[2])) {
            is_indexed_ = false;
            invoke{function, values_, raw};
        } else if (raw.is_list()) {
            for (const Object& item : iterate(raw)) append(item);
        } else {
            append(raw);
        }
    }

private:
    Module m_;
    Object values_ = list{};
    Object index_ = set{};
    bool is_indexed_ = true;
};

void append_listed(Candidates& candidates, const Object& universes) {
    for (const Object& universe : iterate(universes)) {
        Object name = universe;
        if (universe.is_dict()) {
            name = universe.get<"named_universe">();
            if (!truth(name)) name = universe.get<"id">();
            if (!truth(name)) name = universe.get<"name">();
        }
        candidates.append(name);
    }
}

Object active_era_named_universe_candidates(Module m, const Object& era) {
    Candidates candidates{m};
    const Object append = m.get<"_append_unique_named_universe">();
    candidates.append(append, era.get<"named_universe">());
    const Object append_allowed = m.get<"_append_allowed_named_universes">();
    candidates.append_allowed(append_allowed, era.get<"allowed_named_universes">());

    const Object pools = era.get<"signal_pools">();
    if (pools.is_list())
        for (const Object& pool : iterate(pools)) {
            if (!pool.is_dict()) continue;
            const Object append_pool = m.get<"_append_allowed_named_universes">();
            candidates.append_allowed(append_pool, pool.get<"allowed_named_universes">());
        }

    const Object universes = era.get<"universes">();
    if (universes.is_list())
        append_listed(candidates, universes);
    else if (universes.is_dict())
        for (const Object& name : iterate(sorted(universes))) candidates.append(name);
    return candidates.values();
}

/// The first safe name of a list, or of a single value.
Object first_safe(Module m, const Object& allowed) {
    if (!allowed.is_list()) return m.call<"_safe_named_universe">(allowed);
    for (const Object& item : iterate(allowed)) {
        Object name = m.call<"_safe_named_universe">(item);
        if (truth(name)) return name;
    }
    return none;
}

/// The pools come before what the configuration itself allows.
Object first_allowed_named_universe_from_era_config(Module m, const Object& era_config) {
    if (!era_config.is_dict()) return none;

    const Object pools = era_config.get<"signal_pools">();
    if (pools.is_list())
        for (const Object& pool : iterate(pools)) {
            if (!pool.is_dict()) continue;
            Object name = first_safe(m, pool.get<"allowed_named_universes">());
            if (truth(name)) return name;
        }
    Object name = first_safe(m, era_config.get<"allowed_named_universes">());
    if (truth(name)) return name;
    return invoke{m.get<"_safe_named_universe">(), era_config.get<"named_universe">()};
}

}  // namespace

PyMethodDef functions::named_universes[] = {
    def<"_safe_named_universe(value)", safe_named_universe>(),
    def<"_append_unique_named_universe(values, value)", append_unique_named_universe>(),
    def<"_append_allowed_named_universes(values, raw)", append_allowed_named_universes>(),
    def<"_active_era_named_universe_candidates(era)", active_era_named_universe_candidates>(),
    def<"_first_allowed_named_universe_from_era_config(era_config)", first_allowed_named_universe_from_era_config>(),
    {}};

}  // namespace agent_onboarding
