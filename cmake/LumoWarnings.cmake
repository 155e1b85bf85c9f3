# Warning flags for every target of ours; errors when LUMO_WERROR is on (CI).
function(lumo_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wnon-virtual-dtor
                                           -Wcast-align -Wunused -Wformat=2)
  # GCC's flow analysis reports false "maybe uninitialized" inside the
  # standard library once sanitizer instrumentation is added.
  if(LUMO_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
  endif()
  if(LUMO_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
