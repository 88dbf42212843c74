zv_test_suite(panel_columns_tests ${CMAKE_CURRENT_SOURCE_DIR}/distance/panel_columns_test.cpp)
