# Lasso and GLM-lasso coordinate descent.
zv_test_suite(lasso_tests ${CMAKE_CURRENT_SOURCE_DIR}/sparse/lasso_test.cpp)
