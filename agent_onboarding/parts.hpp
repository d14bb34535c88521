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

/// The function tables.
namespace functions {
extern PyMethodDef error_detail[];
extern PyMethodDef option_types[];
extern PyMethodDef heartbeat_search[];
extern PyMethodDef key_prefix[];
extern PyMethodDef invite_codes[];
extern PyMethodDef signal_service_url[];
extern PyMethodDef data_directory[];
extern PyMethodDef file_settings[];
extern PyMethodDef key_file[];
extern PyMethodDef registration[];
extern PyMethodDef configuration[];
extern PyMethodDef heartbeat[];
extern PyMethodDef nudges[];
}  // namespace functions

}  // namespace agent_onboarding
