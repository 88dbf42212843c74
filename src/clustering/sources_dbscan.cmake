target_sources(zvstats_objects PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/dbscan_gateway.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/clustering/silhouette_gateway.cpp)
