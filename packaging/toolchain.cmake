# Cross-building with Debian's cross compilers and the board's system as sysroot.
#
#   -DTRIPLET=          aarch64-linux-gnu (g++-aarch64-linux-gnu) or arm-linux-gnueabihf (g++-arm-linux-gnueabihf)
#   -DCMAKE_SYSROOT=    a copy of the board's system, with headers

set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TRIPLET)
if(NOT TRIPLET MATCHES "^(aarch64-linux-gnu|arm-linux-gnueabihf)$")
    message(FATAL_ERROR "for which board? -DTRIPLET=aarch64-linux-gnu or -DTRIPLET=arm-linux-gnueabihf")
endif()
if(NOT IS_ABSOLUTE "${CMAKE_SYSROOT}" OR NOT IS_DIRECTORY "${CMAKE_SYSROOT}/usr/include")
    message(FATAL_ERROR "the board's system, by its whole path and with usr/include in it, is missing:\
 -DCMAKE_SYSROOT=DIR (now '${CMAKE_SYSROOT}'); scripts/cross.sh makes one")
endif()

set(CMAKE_SYSTEM_NAME Linux)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR "${TRIPLET}")
find_program(QZ_CROSS_COMPILER ${TRIPLET}-g++)
if(NOT QZ_CROSS_COMPILER)
    message(FATAL_ERROR "${TRIPLET}-g++ is missing; scripts/setup.sh cross installs it")
endif()
set(CMAKE_CXX_COMPILER ${TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${TRIPLET})

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
    set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()

# Runs what was built, where it is installed (qemu-user-static).
find_program(QZ_EMULATOR NAMES qemu-${CMAKE_SYSTEM_PROCESSOR}-static qemu-${CMAKE_SYSTEM_PROCESSOR})
