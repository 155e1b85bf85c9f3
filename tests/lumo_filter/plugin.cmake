# Plugin tests. The object suite links the plugin core directly; the library
# suite loads the built liblumo_filter.so the way the camera host does (the two
# instances on two threads are in reliability.cmake's soak test).
add_library(lumo_plugin_test_support INTERFACE)  # plugin_test_support.h
target_include_directories(lumo_plugin_test_support INTERFACE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(lumo_plugin_test_support INTERFACE vyhost lumo_calib GTest::gtest)

lumo_add_gtest(plugin_core_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/plugin_object_test.cpp
  LIBS lumo_filter_core lumo_plugin_test_support LABELS arch)
lumo_add_gtest(plugin_library_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/plugin_library_test.cpp
  LIBS lumo_plugin_test_support LABELS arch)
target_compile_definitions(plugin_library_test PRIVATE
  LUMO_PLUGIN_LIBRARY="$<TARGET_FILE:lumo_filter>" LUMO_HAVE_RENDERER=1)
add_dependencies(plugin_library_test lumo_filter)

# Exported symbols and needed libraries, read with readelf so the check also
# runs on cross builds.
add_test(NAME plugin_abi COMMAND ${CMAKE_COMMAND} -DLIB=$<TARGET_FILE:lumo_filter>
         -P ${PROJECT_SOURCE_DIR}/cmake/check_plugin_abi.cmake)
set_tests_properties(plugin_abi PROPERTIES LABELS arch)
