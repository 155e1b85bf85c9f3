# Host utilities: the plane-aware buffer copy against one memcpy of the same bytes.
add_executable(hostsim_bench ${CMAKE_CURRENT_LIST_DIR}/hostsim_bench.cpp)
target_link_libraries(hostsim_bench PRIVATE vyhost benchmark::benchmark)
lumo_warnings(hostsim_bench)
