# Calibration store, its dump, the trigger and the LUT blend kernels.
add_library(lumo_param_fixtures INTERFACE)  # plugin_test_support.h
target_include_directories(lumo_param_fixtures INTERFACE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(lumo_param_fixtures INTERFACE lumo_filter_core lumo_calib GTest::gtest)
foreach(part store trigger)
  lumo_add_gtest(param_${part}_test
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/param_${part}_test.cpp LIBS lumo_param_fixtures
    LABELS arch)
endforeach()
