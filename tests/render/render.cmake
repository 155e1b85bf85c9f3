# Renderer tests: the core on plain planes, and the SDK object through the
# host simulator's buffers.
lumo_add_gtest(render_core_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/effect_script_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/color_math_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/render_accuracy_test.cpp
          ${CMAKE_CURRENT_LIST_DIR}/render_effects_test.cpp
  LIBS videoprocess_core
  LABELS arch)

# Concurrency: the pool and banded rendering, also run under TSan.
lumo_add_gtest(render_pool_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/thread_pool_test.cpp
  LIBS videoprocess_core
  LABELS tsan)

lumo_add_gtest(render_sdk_tests
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/sdk_filter_test.cpp
  LIBS videoprocess vyhost
  LABELS arch)

# arm64: the emulator's default CPU has SVE2 with 512-bit vectors, which the
# whole suite above runs on. The kernel accuracy tests run again at 128 and
# 256 bits, where Highway picks its fixed-width SVE2_128 and SVE_256 targets
# and the variable-width ones take other strides and row tails. Only those
# tests: nothing else in the renderer depends on the vector length.
if(CMAKE_CROSSCOMPILING_EMULATOR AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  foreach(length 16:SVE2_128 32:SVE_256)
    string(REPLACE ":" ";" length ${length})
    list(GET length 0 bytes)
    list(GET length 1 target)
    math(EXPR bits "${bytes} * 8")
    add_test(NAME render_kernels_sve${bits}
             COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} -cpu max,sve-default-vector-length=${bytes}
                     $<TARGET_FILE:render_core_tests> --gtest_filter=RenderAccuracy.*)
    set_tests_properties(render_kernels_sve${bits} PROPERTIES
      ENVIRONMENT LUMO_RENDER_EXPECT_TARGET=${target} LABELS arch)
  endforeach()
endif()
