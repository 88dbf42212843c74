# The gateway fuzzer: valid template calls of every implemented gateway and
# their mutations, in child processes. CI runs a short fixed-seed budget;
# ZV_FUZZ_CALLS and ZV_FUZZ_SEED make it longer or different.
file(GLOB zv_fuzz_templates CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/templates_*.cpp)
add_executable(fuzz_gateways
  ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/fuzz_main.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/mutations.cpp
  ${zv_fuzz_templates})
target_include_directories(fuzz_gateways PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(fuzz_gateways PRIVATE zvstats_core zvhost_control)
set(ZV_FUZZ_CI_CALLS 1000 CACHE STRING "Mutated calls per gateway in the ctest run of the fuzzer")
add_test(NAME fuzz.gateways COMMAND fuzz_gateways --calls ${ZV_FUZZ_CI_CALLS} --seed 1)
set_tests_properties(fuzz.gateways PROPERTIES TIMEOUT 600)
