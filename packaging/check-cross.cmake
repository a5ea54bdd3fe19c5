# What packaging/toolchain.cmake needs to be told.  Looked at before the project begins: after a mistake in the
# toolchain file itself CMake goes on and complains of what follows from it.

if(NOT TRIPLET MATCHES "^(aarch64-linux-gnu|arm-linux-gnueabihf)$")
    message(FATAL_ERROR "For which board? -DTRIPLET=aarch64-linux-gnu or -DTRIPLET=arm-linux-gnueabihf")
endif()
if("${CMAKE_SYSROOT}" STREQUAL "")
    message(FATAL_ERROR "The board's system is missing: -DCMAKE_SYSROOT=DIR")
endif()
if(NOT IS_ABSOLUTE "${CMAKE_SYSROOT}")
    message(FATAL_ERROR "CMAKE_SYSROOT must be a whole path, not ${CMAKE_SYSROOT}")
endif()
if(NOT IS_DIRECTORY "${CMAKE_SYSROOT}/usr/include")
    message(FATAL_ERROR "There is no system with headers in ${CMAKE_SYSROOT}; scripts/cross.sh makes one,\
 or -DCMAKE_SYSROOT=DIR names the board's")
endif()
if(NOT CROSS_COMPILER)
    find_program(CROSS_G++ ${TRIPLET}-g++)
    if(NOT CROSS_G++)
        message(FATAL_ERROR "${TRIPLET}-g++ is missing; scripts/setup.sh cross installs it")
    endif()
endif()
