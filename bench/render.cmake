# Renderer benchmarks: fused kernels against memcpy of the same bytes.
add_executable(render_bench ${CMAKE_CURRENT_LIST_DIR}/render_bench.cpp)
target_include_directories(render_bench PRIVATE ${PROJECT_SOURCE_DIR}/tests/render)
target_link_libraries(render_bench PRIVATE videoprocess_core benchmark::benchmark)
lumo_warnings(render_bench)
