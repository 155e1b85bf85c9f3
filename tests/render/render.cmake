# Renderer tests: the core on plain planes, and the SDK object through the
# host simulator's buffers.
lumo_add_gtest(render_core_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/effect_script_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/color_math_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/render_accuracy_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/render_effects_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/thread_pool_test.cpp
  LIBS videoprocess_core)
