/// \file One line per part: what each binds into the module.
#pragma once

#include "python/function.hpp"

namespace agent_onboarding {

using namespace py::literals;

void define_module_body(py::Module m);
void define_records(py::Module m);
void define_option_store(py::Module m);
void define_option_types(py::Module m);
void define_workspace_texts(py::Module m);
void define_backtester_names(py::Module m);
void define_sync_manager(py::Module m);

/// The function tables.
namespace functions {
extern PyMethodDef error_detail[];
extern PyMethodDef module_copies[];
extern PyMethodDef aliases[];
extern PyMethodDef manifest[];
extern PyMethodDef module_loading[];
extern PyMethodDef freshness[];
extern PyMethodDef backtester[];
extern PyMethodDef option_types[];
extern PyMethodDef heartbeat_search[];
extern PyMethodDef key_prefix[];
extern PyMethodDef invite_codes[];
extern PyMethodDef safe_universe[];
extern PyMethodDef signal_service_url[];
extern PyMethodDef eras_payload[];
extern PyMethodDef named_universes[];
extern PyMethodDef active_universe[];
extern PyMethodDef data_directory[];
extern PyMethodDef file_settings[];
extern PyMethodDef key_file[];
extern PyMethodDef payloads[];
extern PyMethodDef vocabulary[];
extern PyMethodDef bootstrap[];
extern PyMethodDef bring_up[];
extern PyMethodDef registration[];
extern PyMethodDef configuration[];
extern PyMethodDef heartbeat[];
extern PyMethodDef nudges[];
}  // namespace functions

}  // namespace agent_onboarding
