# Long-running checks scaled to CI: repeated plugin lifecycles in one process
# (LUMO_SOAK_CYCLES raises the count for a long run).
if(TARGET lumo_filter AND TARGET lumo_calib)
  lumo_add_gtest(plugin_cycles_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/plugin_cycles_test.cpp
    LIBS lumo_plugin_test_support)
  target_include_directories(plugin_cycles_test PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(plugin_cycles_test PRIVATE LUMO_PLUGIN_LIBRARY="$<TARGET_FILE:lumo_filter>")
  add_dependencies(plugin_cycles_test lumo_filter)
endif()
