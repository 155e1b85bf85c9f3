# Look fitting: one 12 MP before/after pair decoded, then fitted at 17 and
# 33 points, side by side in one run.
add_executable(lut_fit_bench ${CMAKE_CURRENT_LIST_DIR}/lut_fit_bench.cpp)
target_link_libraries(lut_fit_bench PRIVATE lumo_calib lumo_session benchmark::benchmark)
lumo_warnings(lut_fit_bench)
