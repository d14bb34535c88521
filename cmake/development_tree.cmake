# Lays the stand-in package and the module together in <build>/package, ready for PYTHONPATH.
set(package_folder ${PROJECT_BINARY_DIR}/package)

set_target_properties(agent_onboarding PROPERTIES
  LIBRARY_OUTPUT_DIRECTORY ${package_folder}/sablecrest)

# Copied by each build, so that an edited file is there too.
add_custom_target(stand_ins ALL COMMENT "Copying the stand-in package" VERBATIM WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
  COMMAND ${CMAKE_COMMAND} -E copy_directory package_interfaces ${package_folder}
  COMMAND ${CMAKE_COMMAND} -E copy agent_onboarding/agent_onboarding.pyi ${package_folder}/sablecrest)

add_subdirectory(runtime_modules)

# The layer's own test module.
Python_add_library(layer_test MODULE WITH_SOABI tests/python/layer_test.cpp)
target_link_libraries(layer_test PRIVATE python_layer)
set_target_properties(layer_test PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${package_folder})
