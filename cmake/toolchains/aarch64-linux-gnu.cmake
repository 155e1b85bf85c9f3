# Cross build for arm64 Linux with Debian's aarch64 cross compiler and the
# arm64 (multiarch) libraries under /usr/lib/aarch64-linux-gnu. Tests run
# through qemu-user. LUMO_ARM64_CC=clang builds with clang and lld instead,
# which is how a phone toolchain builds the plugin.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(triple aarch64-linux-gnu)

if("$ENV{LUMO_ARM64_CC}" STREQUAL "clang" OR LUMO_ARM64_CC STREQUAL "clang")
  set(CMAKE_C_COMPILER clang)
  set(CMAKE_CXX_COMPILER clang++)
  set(CMAKE_C_COMPILER_TARGET ${triple})
  set(CMAKE_CXX_COMPILER_TARGET ${triple})
  set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld")
  set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld")
else()
  set(CMAKE_C_COMPILER ${triple}-gcc)
  set(CMAKE_CXX_COMPILER ${triple}-g++)
endif()

# Programs run on Debian's multiarch arm64 C library (/lib/ld-linux-aarch64.so.1).
# Not on the cross compiler's copy under /usr/${triple}: mixed with the
# multiarch libraries, its loader hangs in the first pthread_create.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)

# Host programs (pkg-config, readelf) come from the build machine; libraries,
# headers and packages only from the arm64 side. OpenColorIO's arm64 headers
# are unpacked into the build tree by scripts/install-arm64-deps.sh.
get_filename_component(lumo_root ${CMAKE_CURRENT_LIST_DIR}/../.. ABSOLUTE)
set(ENV{PKG_CONFIG_LIBDIR}
    "${lumo_root}/build/arm64-deps/root/usr/lib/${triple}/pkgconfig:/usr/lib/${triple}/pkgconfig:/usr/share/pkgconfig")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
