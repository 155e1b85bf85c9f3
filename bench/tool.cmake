# The tool's YUV to RGB conversion: libyuv's JPEG-range path against the
# double-precision reference, on a camera-sized frame.
add_executable(tool_bench ${CMAKE_CURRENT_LIST_DIR}/tool_bench.cpp)
target_link_libraries(tool_bench PRIVATE lumo_imageio benchmark::benchmark)
lumo_warnings(tool_bench)
