# Cross-building with Debian's cross compilers and the board's system as sysroot.
#
#   -DTRIPLET=          aarch64-linux-gnu (g++-aarch64-linux-gnu) or arm-linux-gnueabihf (g++-arm-linux-gnueabihf)
#   -DCMAKE_SYSROOT=    a copy of the board's system, with headers
#   -DCROSS_COMPILER=   clang++ (with lld) for a board with older C and C++ libraries than Debian 12's, which the
#                       default, TRIPLET-g++, links whatever the sysroot holds

set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TRIPLET CROSS_COMPILER)
if(NOT CROSS_COMPILER)
    set(CROSS_COMPILER ${TRIPLET}-g++)
endif()
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR "${TRIPLET}")
set(CMAKE_CXX_COMPILER ${CROSS_COMPILER})
if(CROSS_COMPILER MATCHES clang)
    set(CMAKE_CXX_COMPILER_TARGET ${TRIPLET})
    set(CMAKE_EXE_LINKER_FLAGS_INIT -fuse-ld=lld)
    set(CMAKE_SHARED_LINKER_FLAGS_INIT -fuse-ld=lld)
endif()
set(CMAKE_LIBRARY_ARCHITECTURE ${TRIPLET})

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
    set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()

# Runs what was built, where it is installed (qemu-user-static).
find_program(QZ_EMULATOR NAMES qemu-${CMAKE_SYSTEM_PROCESSOR}-static qemu-${CMAKE_SYSTEM_PROCESSOR})
