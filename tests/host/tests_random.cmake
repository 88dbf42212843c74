zv_test_suite(host_random_tests ${CMAKE_CURRENT_SOURCE_DIR}/host/random_stream_test.cpp)
