# Renderer tests: the core on plain planes, and the SDK object through the
# host simulator's buffers.
lumo_add_gtest(render_core_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/effect_script_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/color_math_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/render_accuracy_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/render_effects_test.cpp
  LIBS videoprocess_core)

# Concurrency: the pool and banded rendering, also run under TSan.
lumo_add_gtest(render_pool_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/thread_pool_test.cpp
  LIBS videoprocess_core
  LABELS tsan)

# The SDK registers itself when its library loads: keep it on the NEEDED list
# although the test calls nothing in it directly.
lumo_add_gtest(render_sdk_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/sdk_filter_test.cpp
  LIBS "-Wl,--no-as-needed" videoprocess "-Wl,--as-needed" vyhost)
