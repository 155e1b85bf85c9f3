# LUT files of every format: OpenColorIO's own writers make the sources.
if(TARGET lumo_calib)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(LUMO_TEST_OCIO REQUIRED IMPORTED_TARGET OpenColorIO)
  lumo_add_gtest(lumo_lut_source_tests
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/lut_source_test.cpp
    LIBS lumo_calib PkgConfig::LUMO_TEST_OCIO)
endif()
