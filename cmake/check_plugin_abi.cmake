# Checks the plugin library's ABI the way a phone's loader sees it, with
# readelf so it works for any target architecture:
#   cmake -DLIB=path/liblumo_filter.so -P check_plugin_abi.cmake
# It must export only its C entry, and need only the C and C++ runtimes and
# the two host libraries the camera framework provides.
cmake_minimum_required(VERSION 3.25)
if(NOT LIB)
  message(FATAL_ERROR "check_plugin_abi: pass -DLIB=<plugin library>")
endif()
find_program(READELF NAMES readelf llvm-readelf REQUIRED)

execute_process(COMMAND ${READELF} --dyn-syms --wide ${LIB}
                OUTPUT_VARIABLE syms RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "check_plugin_abi: ${READELF} failed on ${LIB}")
endif()
string(REPLACE "\n" ";" lines "${syms}")
set(exported "")
foreach(line IN LISTS lines)
  # Num: Value Size Type Bind Vis Ndx Name
  if(line MATCHES "^ *[0-9]+: +[0-9a-f]+ +[0-9]+ +[A-Z_]+ +(GLOBAL|WEAK|UNIQUE) +DEFAULT +([A-Z0-9]+) +([^ @]+)")
    if(NOT CMAKE_MATCH_2 STREQUAL "UND")
      list(APPEND exported ${CMAKE_MATCH_3})
    endif()
  endif()
endforeach()
if(NOT exported STREQUAL "tavuconnect")
  list(LENGTH exported count)
  list(SUBLIST exported 0 8 shown)
  message(FATAL_ERROR "check_plugin_abi: ${LIB} exports ${count} symbols, expected only "
                      "tavuconnect; the first: ${shown}")
endif()

execute_process(COMMAND ${READELF} --dynamic --wide ${LIB} OUTPUT_VARIABLE dyn)
string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*\\[[^]]+\\]" needed_lines "${dyn}")
# Sanitizer builds also need their runtime; a phone build never has one.
set(allowed "^(libc|libm|libdl|libstdc\\+\\+|libc\\+\\+|libc\\+\\+_shared|libgcc_s|ld-linux-aarch64|ld-linux-x86-64|libvyhost|libvideoprocess|libasan|libubsan|libtsan)\\.so")
set(needed "")
foreach(line IN LISTS needed_lines)
  string(REGEX REPLACE ".*\\[([^]]+)\\]" "\\1" name "${line}")
  list(APPEND needed ${name})
  if(NOT name MATCHES "${allowed}")
    message(FATAL_ERROR "check_plugin_abi: ${LIB} needs ${name}; only the C/C++ runtimes and the host libraries are allowed")
  endif()
endforeach()
if(NOT "libvyhost.so" IN_LIST needed)
  message(FATAL_ERROR "check_plugin_abi: ${LIB} does not need libvyhost.so (needed: ${needed})")
endif()
# An empty entry in the library search path is read as the current folder:
# the plugin would take a library of that name from wherever the host runs.
if(dyn MATCHES "\\((RUNPATH|RPATH)\\)[^\n]*\\[([^]\n]*)\\]")
  set(search_path "${CMAKE_MATCH_2}")
  if(search_path MATCHES "^:|::|:$")
    message(FATAL_ERROR "check_plugin_abi: ${LIB} searches the current folder for libraries "
                        "(an empty entry in its search path \"${search_path}\")")
  endif()
endif()
message(STATUS "plugin ABI: exports ${exported}; needs ${needed}")
