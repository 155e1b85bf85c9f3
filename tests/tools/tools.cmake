# Unit tests of the lumo tool's pieces, and black-box tests of the built tool.
# libjpeg writes the CMYK JPEGs the tool never writes itself; zlib (through
# libpng) gives the checksum of a patched PNG header.
find_package(PNG REQUIRED)
find_package(JPEG REQUIRED)
lumo_add_gtest(lumo_tool_unit_tests
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/tool_unit_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/frame_outcome_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/raw_layout_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/dump_session_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/calib_lint_diff_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/picture_lut_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/compare_unit_test.cpp
  LIBS lumo_session lumo_progress PNG::PNG JPEG::JPEG GTest::gmock)

# A stand-in plugin that logs what the host hands it and inverts luma, so the
# host side of the tool can be checked call by call.
add_library(lumo_probe_plugin MODULE ${CMAKE_CURRENT_LIST_DIR}/probe_plugin.cpp)
target_link_libraries(lumo_probe_plugin PRIVATE vyhost)
target_compile_options(lumo_probe_plugin PRIVATE -fno-rtti -fvisibility=hidden)
set_target_properties(lumo_probe_plugin PROPERTIES CXX_STANDARD 17)
lumo_warnings(lumo_probe_plugin)

lumo_add_gtest(lumo_cli_tests
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/lumo_cli_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/field_cli_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/calib_toolkit_cli_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/compare_cli_test.cpp
  LIBS lumo_session GTest::gmock)
target_compile_definitions(lumo_cli_tests PRIVATE
  LUMO_TOOL="$<TARGET_FILE:lumo>"
  PROBE_PLUGIN="$<TARGET_FILE:lumo_probe_plugin>"
  LUMO_EXAMPLES_DIR="${PROJECT_SOURCE_DIR}/examples")
add_dependencies(lumo_cli_tests lumo lumo_probe_plugin)
# A cross build's tool runs through the same emulator as the tests.
if(CMAKE_CROSSCOMPILING_EMULATOR)
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " lumo_emulator)
  target_compile_definitions(lumo_cli_tests PRIVATE LUMO_TOOL_EMULATOR="${lumo_emulator} ")
endif()

# The demo and the real plugin's dumps are checked too.
target_compile_definitions(lumo_cli_tests PRIVATE LUMO_REAL_PLUGIN=1)
add_dependencies(lumo_cli_tests lumo_filter lumo_demo_calibration)

# The HTML report's pieces (they link the plugin's core for its selection).
lumo_add_gtest(lumo_report_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/report_test.cpp
  LIBS lumo_report)

# The report in Debian's chromium (installed by scripts/install-deps.sh). Not
# in cross builds: the browser runs on the build machine, the page is the same.
if(NOT CMAKE_CROSSCOMPILING)
  lumo_find_program(LUMO_CHROMIUM NAMES chromium chromium-browser DEBIAN chromium)
  lumo_add_gtest(lumo_report_browser_tests
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/report_browser_test.cpp
    LIBS lumo_report)
  target_compile_definitions(lumo_report_browser_tests PRIVATE
    LUMO_TOOL="$<TARGET_FILE:lumo>"
    LUMO_CHROMIUM="${LUMO_CHROMIUM}"
    LUMO_DEMO_CALIBRATION="${CMAKE_BINARY_DIR}/share/lumo/lumo_filter_param.bin"
    LUMO_DEMO_PREVIOUS="${CMAKE_BINARY_DIR}/share/lumo/lumo_filter_param_previous.bin")
  add_dependencies(lumo_report_browser_tests lumo lumo_filter lumo_demo_calibration)
endif()
