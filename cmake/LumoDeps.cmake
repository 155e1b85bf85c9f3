# Dependencies come from Debian packages (scripts/install-deps.sh installs
# them all). A missing one stops configuration and names the package, so
# nothing is left out of the build without a word.
#
#   lumo_find_package(NAME [find_package args...] DEBIAN package)
#   lumo_pkg_check(PREFIX module DEBIAN package)   -> PkgConfig::PREFIX
#   lumo_find_library(TARGET name HEADER header DEBIAN package)  -> imported TARGET
#   lumo_find_program(VAR NAMES names... DEBIAN package)

function(lumo_missing what package)
  message(FATAL_ERROR "${what} not found: install the Debian package ${package} "
                      "(scripts/install-deps.sh installs every package the build needs)")
endfunction()

macro(lumo_find_package name)
  cmake_parse_arguments(_LFP "" "DEBIAN" "" ${ARGN})
  find_package(${name} ${_LFP_UNPARSED_ARGUMENTS} QUIET)
  if(NOT ${name}_FOUND)
    lumo_missing(${name} ${_LFP_DEBIAN})
  endif()
endmacro()

macro(lumo_pkg_check prefix module)
  cmake_parse_arguments(_LPC "" "DEBIAN" "" ${ARGN})
  find_package(PkgConfig QUIET)
  if(NOT PKG_CONFIG_FOUND)
    lumo_missing(pkg-config pkg-config)
  endif()
  if(NOT TARGET PkgConfig::${prefix})
    pkg_check_modules(${prefix} QUIET IMPORTED_TARGET GLOBAL ${module})
  endif()
  if(NOT TARGET PkgConfig::${prefix})
    lumo_missing(${module} ${_LPC_DEBIAN})
  endif()
endmacro()

function(lumo_find_library target)
  cmake_parse_arguments(L "" "HEADER;DEBIAN" "NAMES" ${ARGN})
  if(TARGET ${target})
    return()
  endif()
  find_library(LUMO_${target}_LIBRARY NAMES ${L_NAMES})
  find_path(LUMO_${target}_INCLUDE ${L_HEADER})
  if(NOT LUMO_${target}_LIBRARY OR NOT LUMO_${target}_INCLUDE)
    lumo_missing(${target} ${L_DEBIAN})
  endif()
  add_library(${target} UNKNOWN IMPORTED GLOBAL)
  set_target_properties(${target} PROPERTIES IMPORTED_LOCATION ${LUMO_${target}_LIBRARY}
                                             INTERFACE_INCLUDE_DIRECTORIES ${LUMO_${target}_INCLUDE})
endfunction()

function(lumo_find_program var)
  cmake_parse_arguments(L "" "DEBIAN" "NAMES" ${ARGN})
  find_program(${var} NAMES ${L_NAMES})
  if(NOT ${var})
    lumo_missing(${L_NAMES} ${L_DEBIAN})
  endif()
endfunction()
