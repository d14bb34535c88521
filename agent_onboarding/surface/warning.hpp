/// \file Failures that are logged instead of raised.
#pragma once

#include "python/error.hpp"
#include "python/module.hpp"

namespace agent_onboarding {

/// `try: return body()`, `except Exception as exc:`, `logger.warning(message, *arguments, exc)`, `then(exc)`.
template <typename Body, typename Then, std::same_as<py::Object>... Arguments>
std::optional<py::Object> warn_then(py::Module m, Body body, Then then, const py::Object& message,
                                    const Arguments&... arguments) {
    try {
        return body();
    } catch (const py::Error& error) {
        const py::Handling except{error};
        if (!except.caught(PyExc_Exception)) throw;
        m.call<"logger.warning">(message, arguments..., except.value());
        then(except.value());
        return std::nullopt;
    }
}

/// The same with nothing but the warning.
template <typename Body, std::same_as<py::Object>... Arguments>
std::optional<py::Object> warn(py::Module m, Body body, const py::Object& message, const Arguments&... arguments) {
    return warn_then(m, body, [](const py::Object&) {}, message, arguments...);
}

}  // namespace agent_onboarding
