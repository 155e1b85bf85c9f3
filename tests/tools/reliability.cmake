# Many replay sessions in one process; the replay sources are compiled in,
# as the tool's own executable does (LUMO_SOAK_CYCLES raises the count).
if(TARGET lumo AND TARGET lumo_filter)
  lumo_add_gtest(tool_sessions_test
    SOURCES
      ${CMAKE_CURRENT_LIST_DIR}/tool_sessions_test.cpp
      ${CMAKE_CURRENT_LIST_DIR}/replay_faults_test.cpp
      ${PROJECT_SOURCE_DIR}/tools/lumo/replay.cpp
      ${PROJECT_SOURCE_DIR}/tools/lumo/frame_source.cpp
      ${PROJECT_SOURCE_DIR}/tools/lumo/host_setup.cpp
    LIBS lumo_tool_core vyhost)
  target_include_directories(tool_sessions_test PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(tool_sessions_test PRIVATE
    LUMO_PLUGIN_LIBRARY="$<TARGET_FILE:lumo_filter>")
  add_dependencies(tool_sessions_test lumo_filter)
endif()
