# Warning flags for every target of ours; errors when LUMO_WERROR is on (CI).
function(lumo_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wnon-virtual-dtor
                                           -Wcast-align -Wunused -Wformat=2)
  if(LUMO_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
