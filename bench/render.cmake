# Renderer benchmarks: fused kernels against memcpy of the same bytes.
add_executable(render_bench ${CMAKE_CURRENT_LIST_DIR}/render_bench.cpp)
target_include_directories(render_bench PRIVATE ${PROJECT_SOURCE_DIR}/tests/render)
target_link_libraries(render_bench PRIVATE videoprocess_core benchmark::benchmark)
lumo_warnings(render_bench)

# The benchmark's frame and LUT as files, for the ffmpeg comparison.
add_executable(render_fixture ${CMAKE_CURRENT_LIST_DIR}/render_fixture.cpp)
target_include_directories(render_fixture PRIVATE ${PROJECT_SOURCE_DIR}/tests/render)
target_link_libraries(render_fixture PRIVATE videoprocess_core)
lumo_warnings(render_fixture)
