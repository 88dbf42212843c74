zv_test_suite(panel_search_tests ${CMAKE_CURRENT_SOURCE_DIR}/distance/panel_search_test.cpp)
