# The compiler and linker options that every target of the project shares, as one interface target. Warnings are errors in
# our presets (CMAKE_COMPILE_WARNING_AS_ERROR) and not for whoever builds with another compiler than ours.
add_library(kelt_options INTERFACE)

target_compile_definitions(kelt_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64 _GNU_SOURCE)
target_compile_options(
  kelt_options
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wconversion
            -Wold-style-cast
            -Wcast-qual
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            $<$<NOT:$<BOOL:$<TARGET_PROPERTY:KELT_TEST>>>:-Wnull-dereference>
            -Wformat=2
            -Wimplicit-fallthrough
            -Wundef
            -fstack-protector-strong
            -ffunction-sections
            -fdata-sections
            -fvisibility=hidden
            # What ships names no directory of the machine that built it.
            -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(kelt_options INTERFACE -Wduplicated-cond -Wlogical-op)
  # Where the dynamic loader finds no memory for its table of unique symbols, it ends the process. No two of our objects
  # share a variable by such a symbol.
  target_compile_options(kelt_options INTERFACE -fno-gnu-unique)
  # GCC 12 sees overlapping copies in optimised concatenations of std::string where there are none.
  if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(kelt_options INTERFACE -Wno-restrict)
  endif()
endif()
# Fortification needs an optimising build; the sanitizers bring their own checks of the same calls.
target_compile_options(kelt_options
                       INTERFACE $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
target_link_options(kelt_options INTERFACE -Wl,--gc-sections -Wl,--as-needed -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

set(KELT_SANITIZE "" CACHE STRING "Sanitizers to build with, for instance address,undefined")
if(KELT_SANITIZE)
  # The check of virtual tables asks the system for a pipe, which tests of exhausted descriptors cannot give it.
  target_compile_options(kelt_options INTERFACE -fsanitize=${KELT_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all
                                                -fno-omit-frame-pointer)
  # With instrumented code GCC takes initialised members of std::variant and std::function for uninitialised.
  target_compile_options(kelt_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(kelt_options INTERFACE -fsanitize=${KELT_SANITIZE})
endif()

option(KELT_COVERAGE "Instrument for gcov" OFF)
if(KELT_COVERAGE)
  target_compile_options(kelt_options INTERFACE --coverage)
  target_link_options(kelt_options INTERFACE --coverage)
endif()

# Start-up is nearly all dynamic loader: the C++ runtime goes into the binary.
add_library(kelt_runtime INTERFACE)
if(KELT_STATIC_RUNTIME AND NOT KELT_SANITIZE)
  target_link_options(kelt_runtime INTERFACE -static-libstdc++ -static-libgcc)
endif()

if(KELT_SMALL)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
  # CMake asks for tables of addresses of any size; these are small ones, which take less code to look into.
  target_compile_options(kelt_options INTERFACE -fpic)
  # Of what it is made of, it tells by no number that differs from build to build.
  target_link_options(kelt_runtime INTERFACE -Wl,--build-id=none)
  target_sources(kelt_runtime INTERFACE ${PROJECT_SOURCE_DIR}/packaging/powerpc/terminate.cpp)
endif()
