# LUT files of every format: OpenColorIO's own writers make the sources.
lumo_add_gtest(lumo_lut_source_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/lut_source_test.cpp
  LIBS lumo_calib PkgConfig::OCIO)
