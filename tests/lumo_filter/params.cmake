# Calibration store, its dump, the trigger and the LUT blend kernels.
if(TARGET lumo_filter_core AND TARGET lumo_calib)
  add_library(lumo_param_fixtures INTERFACE)  # param_fixtures.h
  target_include_directories(lumo_param_fixtures INTERFACE ${CMAKE_CURRENT_LIST_DIR})
  target_link_libraries(lumo_param_fixtures INTERFACE lumo_filter_core lumo_calib GTest::gtest)

  lumo_add_gtest(param_store_test
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/param_store_test.cpp
    LIBS lumo_param_fixtures)
  lumo_add_gtest(param_singleton_test
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/param_singleton_test.cpp
    LIBS lumo_param_fixtures)
  lumo_add_gtest(param_trigger_test
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/param_trigger_test.cpp
    LIBS lumo_param_fixtures)
endif()
