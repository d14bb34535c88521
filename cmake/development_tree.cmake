# Lays the stand-in package and the module together in <build>/package, ready for PYTHONPATH.
set(package_folder ${PROJECT_BINARY_DIR}/package)

set_target_properties(agent_onboarding PROPERTIES
  LIBRARY_OUTPUT_DIRECTORY ${package_folder}/sablecrest)

# configure_file makes each source a dependency of the build, so an edited file is copied again.
file(GLOB_RECURSE stand_ins RELATIVE ${PROJECT_SOURCE_DIR}/package_interfaces CONFIGURE_DEPENDS
  package_interfaces/*)
list(FILTER stand_ins EXCLUDE REGEX __pycache__)
foreach(stand_in IN LISTS stand_ins)
  configure_file(package_interfaces/${stand_in} ${package_folder}/${stand_in} COPYONLY)
endforeach()
configure_file(agent_onboarding/agent_onboarding.pyi ${package_folder}/sablecrest/agent_onboarding.pyi COPYONLY)

add_subdirectory(runtime_modules)

# The layer's own test module.
Python_add_library(layer_test MODULE WITH_SOABI tests/python/layer_test.cpp)
target_link_libraries(layer_test PRIVATE python_layer)
set_target_properties(layer_test PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${package_folder})
