# Calibration toolkit beyond the writer: strict reader and validator, JSON
# description, generated looks, .cube import and export, text dump.
set(LUMO_CALIB_TOOL_TESTS
  ${CMAKE_CURRENT_LIST_DIR}/calibration_reader_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/description_json_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/looks_cube_test.cpp)
lumo_add_gtest(lumo_calib_tools_tests SOURCES ${LUMO_CALIB_TOOL_TESTS} LIBS lumo_calib LABELS arch)
target_compile_definitions(lumo_calib_tools_tests PRIVATE
                           LUMO_EXAMPLES_DIR="${PROJECT_SOURCE_DIR}/examples")
