# Many replay sessions in one process, through the tool's own replay library
# (LUMO_SOAK_CYCLES raises the count), and the threads of a pipelined replay
# (part of the ThreadSanitizer set).
lumo_add_gtest(tool_sessions_test
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/tool_sessions_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/replay_faults_test.cpp
  LIBS lumo_session)
lumo_add_gtest(pipeline_threads_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/pipeline_threads_test.cpp
  LIBS lumo_session
  LABELS tsan)
foreach(test tool_sessions_test pipeline_threads_test)
  target_include_directories(${test} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(${test} PRIVATE LUMO_PLUGIN_LIBRARY="$<TARGET_FILE:lumo_filter>")
  add_dependencies(${test} lumo_filter)
endforeach()
