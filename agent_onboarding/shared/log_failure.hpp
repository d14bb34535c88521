/// \file Failures that are logged instead of raised.
#pragma once

#include "python/blocks.hpp"
#include "python/module.hpp"

namespace agent_onboarding {

/// `try: return body()`, `except Exception as exc:`, `logger.warning(message, *arguments, exc)`, `then(exc)`.
template <typename Body, typename Then, std::same_as<py::Object>... Arguments>
std::optional<py::Object> log_failure_and(py::Module m, Body body, Then then, const py::Object& message,
                                          const Arguments&... arguments) {
    return py::try_except([&] { return std::optional<py::Object>{body()}; }, {PyExc_Exception},
                          [&](const py::Handling& except) -> std::optional<py::Object> {
                              m.call<"logger.warning">(message, arguments..., except.value());
                              then(except.value());
                              return std::nullopt;
                          });
}

/// The same with nothing but the warning.
template <typename Body, std::same_as<py::Object>... Arguments>
std::optional<py::Object> log_failure(py::Module m, Body body, const py::Object& message,
                                      const Arguments&... arguments) {
    return log_failure_and(m, body, [](const py::Object&) {}, message, arguments...);
}

}  // namespace agent_onboarding
