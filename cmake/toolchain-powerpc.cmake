# 32-bit big-endian PowerPC, with Debian's cross compiler, the libraries of scripts/setup-powerpc and QEMU's user-mode
# emulation for the tests. Use it through the preset "ppc".
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ppc)
set(CMAKE_C_COMPILER powerpc-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)

get_filename_component(kelt_ppc "${CMAKE_CURRENT_LIST_DIR}/../build/ppc" ABSOLUTE)
if(NOT EXISTS ${kelt_ppc}/libraries/complete)
  message(FATAL_ERROR "The PowerPC libraries are missing: run scripts/setup-powerpc")
endif()
set(CMAKE_FIND_ROOT_PATH ${kelt_ppc}/libraries /usr/powerpc-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${kelt_ppc}/libraries/lib/pkgconfig)

# Libraries that a library needs are found beside it here, and on the device where its loader looks.
set(CMAKE_SKIP_RPATH ON)
foreach(kind IN ITEMS EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -Wl,-rpath-link,${kelt_ppc}/libraries/lib)
endforeach()

# Enough for a program to list its tests; tests/powerpc/emulate runs them.
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-ppc-static -L ${kelt_ppc}/root)
