# Many replay sessions in one process, through the tool's own replay library
# (LUMO_SOAK_CYCLES raises the count).
if(TARGET lumo AND TARGET lumo_filter)
  lumo_add_gtest(tool_sessions_test
    SOURCES
      ${CMAKE_CURRENT_LIST_DIR}/tool_sessions_test.cpp
      ${CMAKE_CURRENT_LIST_DIR}/replay_faults_test.cpp
    LIBS lumo_replay)
  target_include_directories(tool_sessions_test PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(tool_sessions_test PRIVATE
    LUMO_PLUGIN_LIBRARY="$<TARGET_FILE:lumo_filter>")
  add_dependencies(tool_sessions_test lumo_filter)
endif()
