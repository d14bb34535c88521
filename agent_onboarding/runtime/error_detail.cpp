/// \file One line about an exception and its explicit causes, for messages.
#include "parts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

constexpr Py_ssize_t most_links = 4;

Object describe(const Object& exception) {
    const Object message = strip(str(exception));
    Object part = type_name(exception);
    if (truth(message)) part = fstring<"{}: {}">{part, message};
    const Object diagnostic = attr_or_none<"diagnostic_detail">(exception);
    if (truth(diagnostic)) part = fstring<"{}; diagnostic: {}">{part, diagnostic};
    return part;
}

bool is_among(const Object& visited, const Object& exception) {
    for (const Object& one : iterate(visited))
        if (one.is(exception)) return true;
    return false;
}

Object exception_chain_detail(Module, const Object& exc) {
    const Object parts = list{};
    const Object visited = list{};  // so that a cycle of causes ends
    Object current = exc;
    while (!current.is_none() && size(parts) < most_links) {
        if (is_among(visited, current)) break;
        append(visited, current);
        const Object part = describe(current);
        if (!contains(parts, part)) append(parts, part);
        current = attr_or_none<"__cause__">(current);
    }
    return join("; caused by "_s, parts);
}

}  // namespace

PyMethodDef functions::error_detail[] = {def<"_exception_chain_detail(exc)", exception_chain_detail>(), {}};

}  // namespace agent_onboarding
