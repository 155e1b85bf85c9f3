# Host simulator tests, with small plugin libraries loaded the framework's way.
foreach(variant minimal refusing entryless silent)
  add_library(hostsim_${variant}_plugin MODULE ${CMAKE_CURRENT_LIST_DIR}/test_plugin/minimal_plugin.cpp)
  target_link_libraries(hostsim_${variant}_plugin PRIVATE vyhost)
  target_compile_options(hostsim_${variant}_plugin PRIVATE -fno-rtti -fvisibility=hidden
                                                           -fvisibility-inlines-hidden)
  set_target_properties(hostsim_${variant}_plugin PROPERTIES CXX_STANDARD 17)
  lumo_warnings(hostsim_${variant}_plugin)
  string(TOUPPER ${variant} VARIANT)
  list(APPEND HOSTSIM_PLUGIN_PATHS ${VARIANT}_PLUGIN="$<TARGET_FILE:hostsim_${variant}_plugin>")
endforeach()
# The entry's name, its answer and whether it registers the provider, per variant.
target_compile_definitions(hostsim_minimal_plugin PRIVATE ENTRY=tavuconnect ENTRY_RESULT=true REGISTER=1)
target_compile_definitions(hostsim_refusing_plugin PRIVATE ENTRY=tavuconnect ENTRY_RESULT=false REGISTER=1)
target_compile_definitions(hostsim_entryless_plugin PRIVATE ENTRY=tavuconnect_misspelt ENTRY_RESULT=true REGISTER=1)
target_compile_definitions(hostsim_silent_plugin PRIVATE ENTRY=tavuconnect ENTRY_RESULT=true REGISTER=0)

file(GLOB HOSTSIM_TEST_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*_test.cpp)
list(FILTER HOSTSIM_TEST_SOURCES EXCLUDE REGEX "concurrency_test\\.cpp$")
lumo_add_gtest(hostsim_tests SOURCES ${HOSTSIM_TEST_SOURCES} LIBS vyhost LABELS arch)
add_dependencies(hostsim_tests hostsim_minimal_plugin hostsim_refusing_plugin
                 hostsim_entryless_plugin hostsim_silent_plugin)
target_compile_definitions(hostsim_tests PRIVATE ${HOSTSIM_PLUGIN_PATHS})

# Runs under ThreadSanitizer too.
lumo_add_gtest(hostsim_concurrency_tests SOURCES ${CMAKE_CURRENT_LIST_DIR}/concurrency_test.cpp
               LIBS vyhost LABELS tsan)
