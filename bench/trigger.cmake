# Trigger costs: the LUT blend kernels side by side, and a frame whose cell did not change.
add_executable(trigger_bench ${CMAKE_CURRENT_LIST_DIR}/trigger_bench.cpp)
target_link_libraries(trigger_bench PRIVATE lumo_filter_core lumo_calib benchmark::benchmark)
lumo_warnings(trigger_bench)
