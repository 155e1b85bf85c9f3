# Crash inputs the fuzzers found, replayed in the normal build.
lumo_add_gtest(fuzz_regression_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/fuzz_regression_test.cpp
  LIBS lumo_session GTest::gmock)
target_compile_definitions(fuzz_regression_tests PRIVATE
  LUMO_FUZZ_REGRESSIONS="${PROJECT_SOURCE_DIR}/fuzz/regressions")
