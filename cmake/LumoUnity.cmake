# The tool and its libraries compile as a few large translation units.
# CLI11 and nlohmann/json are header-only and dominate each source's compile
# time: parsed and code-generated once per batch instead of once per file,
# the tool's own sources take about a quarter of the CPU time (32 s against
# 136 s of user time, measured side by side). The renderer (Highway compiles
# its kernel sources once per SIMD target by re-including them) and the
# plugin stay file by file. -DLUMO_UNITY=OFF builds everything file by file,
# which is what to use while chasing a compile error in one file.
option(LUMO_UNITY "Build the tool and its libraries in batches of sources" ON)

function(lumo_unity target)
  if(LUMO_UNITY)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 6)
  endif()
endfunction()
