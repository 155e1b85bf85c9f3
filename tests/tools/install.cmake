# `cmake --install` to a fresh prefix gives a working tool: the installed
# lumo finds its plugin, libraries and demo calibration relative to itself.
if(NOT CMAKE_CROSSCOMPILING)
  add_test(NAME lumo_installed_copy_runs
           COMMAND ${CMAKE_COMMAND} -DBUILD=${CMAKE_BINARY_DIR}
                   -DPREFIX=${CMAKE_CURRENT_BINARY_DIR}/installed -P
                   ${PROJECT_SOURCE_DIR}/cmake/check_install.cmake)
endif()
