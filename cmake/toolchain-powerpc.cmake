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

# The loadable parts bring the library that they need, in the directory in which they stand themselves: by the attribute that
# goes before LD_LIBRARY_PATH. Where there is none, as in a build tree, the loader finds that with all functions, for the tests.
set(CMAKE_SKIP_RPATH ON)
set(kelt_beside_itself "-Wl,-rpath,'$ORIGIN' -Wl,--disable-new-dtags")
# The processors of the device's family have pages of 4 KiB; the linker would pad each file for those of 64.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-z,max-page-size=4096)
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-Wl,-z,max-page-size=4096 ${kelt_beside_itself}")

# Enough for a program to list its tests; tests/powerpc/emulate runs them.
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/qemu-ppc-static -L ${kelt_ppc}/root)
