# Lasso and GLM-lasso coordinate descent.
target_sources(zvstats_objects PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR}/sparse/lasso.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sparse/lasso_gateway.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sparse/lasso_glm.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/sparse/lasso_glm_gateway.cpp)
