# The calibration-file writer.
lumo_add_gtest(calib_writer_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/writer_test.cpp
  LIBS lumo_calib LABELS arch)
