target_sources(zvstats_objects PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/embedding/tsne_gradient.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/embedding/tsne_loss.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/embedding/tsne_gateways.cpp)
