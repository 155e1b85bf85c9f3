# Unit tests of the lumo tool's pieces, and black-box tests of the built tool.
lumo_add_gtest(lumo_tool_unit_tests
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/image_io_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/dump_name_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/session_test.cpp
  LIBS lumo_tool_core)
