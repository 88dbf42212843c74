target_sources(zvstats_objects PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/sampling/randg_gateway.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sampling/wswor_gateway.cpp)
