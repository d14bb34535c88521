/// \file One line per part: what each file gives to the module body.
#pragma once

#include "python/blocks.hpp"
#include "python/function.hpp"

namespace agent_onboarding {

using namespace py::literals;

void define_module_body(py::Module m);

/// The values that the module binds besides functions.
py::Object make_backtest_module_names(py::Module m);
py::Object make_backtest_parent_module_names(py::Module m);
py::Object make_wallet_registration(py::Module m);
py::Object make_auth_token(py::Module m);
py::Object make_option_store(py::Module m);
py::Object make_option_types(py::Module m);
py::Object make_rotation_option_names(py::Module m);
py::Object make_heartbeat_section(py::Module m);
py::Object make_nudge_texts(py::Module m);
py::Object make_agents_fragment(py::Module m);
py::Object make_sync_manager_class(py::Module m);

/// The function table of each file.
namespace functions {
extern PyMethodDef aliases[];
extern PyMethodDef backtester[];
extern PyMethodDef data_directory[];
extern PyMethodDef eras[];
extern PyMethodDef error_detail[];
extern PyMethodDef freshness_guard[];
extern PyMethodDef hand_over[];
extern PyMethodDef heartbeat[];
extern PyMethodDef key_file[];
extern PyMethodDef local_runtime[];
extern PyMethodDef manifest[];
extern PyMethodDef module_copies[];
extern PyMethodDef module_loading[];
extern PyMethodDef named_universes[];
extern PyMethodDef nudges[];
extern PyMethodDef options[];
extern PyMethodDef registration[];
extern PyMethodDef settings[];
}  // namespace functions

}  // namespace agent_onboarding
