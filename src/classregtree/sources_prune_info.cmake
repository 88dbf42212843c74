target_sources(zvstats_objects PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/classregtree/prune_info.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/classregtree/prune_info_gateway.cpp)
