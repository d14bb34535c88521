/// \file Creates the file that SABLECREST_MARK names as soon as the library is loaded, before any of it is called.
#include <cstdlib>
#include <fstream>

#include "runtime_module.hpp"

namespace {

bool leave_mark() noexcept {
    const char* path = std::getenv("SABLECREST_MARK");
    return path != nullptr && std::ofstream{path}.is_open();
}

/// Initialised by the dynamic linker: in an ELF file this is a constructor of the library.
[[maybe_unused]] const bool mark_was_left = leave_mark();

int execute(PyObject*) { return 0; }

}  // namespace

PyMODINIT_FUNC PyInit_marking() { return initialise<execute>("marking"); }
