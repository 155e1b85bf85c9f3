# Look fitting: generated scenes through known looks (the renderer's own
# LUT arithmetic, ffmpeg filter chains when ffmpeg is installed).
lumo_add_gtest(lumo_lut_fit_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/lut_fit_test.cpp
  LIBS lumo_calib lumo_session videoprocess_core)
