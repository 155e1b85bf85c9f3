# Preview and snapshot on two threads for many frames while the calibration
# file changes (TSan runs it too), and faults of the dump folder.
lumo_add_gtest(plugin_soak_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/plugin_soak_test.cpp
  LIBS lumo_plugin_test_support LABELS tsan)
lumo_add_gtest(dump_faults_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/dump_faults_test.cpp
  LIBS lumo_plugin_test_support)
foreach(suite plugin_soak_test dump_faults_test)
  target_include_directories(${suite} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_compile_definitions(${suite} PRIVATE LUMO_PLUGIN_LIBRARY="$<TARGET_FILE:lumo_filter>"
    LUMO_HAVE_RENDERER=1)
  add_dependencies(${suite} lumo_filter)
endforeach()
