# Cross-building with Debian's cross compilers (g++-aarch64-linux-gnu, g++-arm-linux-gnueabihf) and the
# board's system as sysroot.  TRIPLET is aarch64-linux-gnu or arm-linux-gnueabihf; CMAKE_SYSROOT holds the
# board's headers and libraries.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TRIPLET)
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR "${TRIPLET}")
set(CMAKE_C_COMPILER ${TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${TRIPLET})
if(TRIPLET MATCHES "^arm-")
    # 64-bit file offsets and times also where long has 32 bits.
    set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
    set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
# Built programs run through the emulator where it is installed (qemu-user-static).
find_program(QEMU_USER NAMES qemu-${CMAKE_SYSTEM_PROCESSOR}-static qemu-${CMAKE_SYSTEM_PROCESSOR})
if(QEMU_USER)
    set(CMAKE_CROSSCOMPILING_EMULATOR "${QEMU_USER};-L;${CMAKE_SYSROOT}")
endif()
