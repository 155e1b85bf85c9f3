# Per-frame cost of the plugin itself (metadata, trigger, wrapping, one
# render call on a filter that draws nothing) beside the pass-through copy
# and a memcpy of the same picture bytes.
add_executable(plugin_bench ${CMAKE_CURRENT_LIST_DIR}/plugin_bench.cpp)
target_link_libraries(plugin_bench PRIVATE lumo_filter_core lumo_plugin_test_support
                                           benchmark::benchmark)
lumo_warnings(plugin_bench)
