# Plugin tests. The object suite links the plugin core directly; the library
# and threads suites load the built liblumo_filter.so the way the camera host does.
add_library(lumo_plugin_test_support INTERFACE)  # plugin_test_support.h
target_include_directories(lumo_plugin_test_support INTERFACE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(lumo_plugin_test_support INTERFACE vyhost lumo_calib GTest::gtest)

lumo_add_gtest(plugin_core_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/plugin_object_test.cpp
  LIBS lumo_filter_core lumo_plugin_test_support)
lumo_add_gtest(plugin_library_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/plugin_library_test.cpp
  LIBS lumo_plugin_test_support)
lumo_add_gtest(plugin_threads_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/plugin_threads_test.cpp
  LIBS lumo_plugin_test_support LABELS tsan)
foreach(suite plugin_library_test plugin_threads_test)
  target_compile_definitions(${suite} PRIVATE LUMO_PLUGIN_LIBRARY="$<TARGET_FILE:lumo_filter>"
    LUMO_HAVE_RENDERER=1)
  add_dependencies(${suite} lumo_filter)
endforeach()

# Exported symbols and needed libraries, read with readelf so the check also
# runs on cross builds.
add_test(NAME plugin_abi COMMAND ${CMAKE_COMMAND} -DLIB=$<TARGET_FILE:lumo_filter>
         -P ${PROJECT_SOURCE_DIR}/cmake/check_plugin_abi.cmake)
