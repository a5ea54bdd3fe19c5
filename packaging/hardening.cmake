# What makes a fault in the programs harder to abuse, and their bytes few and the same wherever they were built.
# packaging/check-binary.sh looks at the result.

include(CheckCXXCompilerFlag)

# Programs that the loader may put anywhere, whose tables are read-only once they have started.
set(type $<TARGET_PROPERTY:TYPE>)
target_compile_options(qz_options INTERFACE $<$<NOT:$<STREQUAL:${type},SHARED_LIBRARY>>:-fPIE>)
target_link_options(qz_options INTERFACE $<$<STREQUAL:${type},EXECUTABLE>:-pie>
                                         -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

target_compile_definitions(qz_options INTERFACE _GLIBCXX_ASSERTIONS)
set(CMAKE_REQUIRED_FLAGS -Werror) # clang takes some for other machines with a warning only
foreach(flag
        -fstack-protector-strong
        -fstack-clash-protection
        -fcf-protection=full          # x86
        -mbranch-protection=standard) # 64-bit ARM
    string(MAKE_C_IDENTIFIER "QZ_HAS${flag}" has)
    check_cxx_compiler_flag(${flag} ${has})
    if(${has})
        target_compile_options(qz_options INTERFACE ${flag})
    endif()
endforeach()
unset(CMAKE_REQUIRED_FLAGS)

# The checked functions of the C library are made by the optimiser, and in the sanitizers' way.
set(optimised $<OR:$<CONFIG:Release>,$<CONFIG:RelWithDebInfo>,$<CONFIG:MinSizeRel>>)
if(NOT QZ_SANITIZE)
    target_compile_options(qz_options INTERFACE $<${optimised}:-U_FORTIFY_SOURCE> $<${optimised}:-D_FORTIFY_SOURCE=3>)
endif()

# Small ones: what nobody calls stays out, and so does a library of the common one that a program does not use.
target_link_options(qz_options INTERFACE -Wl,--as-needed)
target_compile_options(qz_options INTERFACE $<${optimised}:-ffunction-sections> $<${optimised}:-fdata-sections>)
target_link_options(qz_options INTERFACE $<${optimised}:-Wl,--gc-sections>)

# No path of the machine that builds.  A debugger finds the sources from the checkout's folder.
foreach(map "${PROJECT_SOURCE_DIR}=." "${PROJECT_BINARY_DIR}=." "${CMAKE_SYSROOT}=")
    if(NOT map STREQUAL "=")
        target_compile_options(qz_options INTERFACE $<${optimised}:-ffile-prefix-map=${map}>)
    endif()
endforeach()
# g++ resolves links in the path of a header when that makes it shorter, and a sysroot may be one.  Not where no sysroot
# is: clang-tidy, which reads those builds, does not know the option.
if(CMAKE_SYSROOT AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(qz_options INTERFACE -fno-canonical-system-headers)
endif()
