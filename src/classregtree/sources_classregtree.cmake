target_sources(zvstats_objects PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/classregtree/grow_tree_gateway.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/classregtree/grow_tree_double.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/classregtree/grow_tree_float.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/classregtree/grow_tree_int.cpp)
