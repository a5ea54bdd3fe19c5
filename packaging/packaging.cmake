# What is installed, in three components:
#
#   daemon        the programs, onto the board (scripts/package.sh makes the package of it)
#   documents     the manual, and what stands in packaging/ for people on the board
#   development   the common library for other programs: find_package(PlintaCommon), target PlintaCommon::common
#
# The simulator is none of them; the board brings its own libxenc.so.

# Made anew at every build, since a commit changes no file that CMake looks at.
set(version "${PROJECT_BINARY_DIR}/version")
add_custom_target(version BYPRODUCTS "${version}/BuildNote.cpp"
    COMMAND ${CMAKE_COMMAND} -D "SOURCE=${PROJECT_SOURCE_DIR}" -D "FOLDER=${version}" -D "VERSION=${PROJECT_VERSION}"
            -P "${PROJECT_SOURCE_DIR}/packaging/version.cmake" VERBATIM)
add_library(build_note OBJECT "${version}/BuildNote.cpp")
target_link_libraries(build_note PRIVATE qz_options)
add_dependencies(build_note version)

set(agent /opt/tormel/plinta/agent/latest)
foreach(program capture capturectl)
    target_link_libraries(${program} PRIVATE build_note)
    install(TARGETS ${program} RUNTIME DESTINATION ${agent} COMPONENT daemon)
    # The simulator's folder, beside that of the build.
    install(CODE "file(RPATH_REMOVE FILE \"\$ENV{DESTDIR}${agent}/${program}\")" COMPONENT daemon)
endforeach()
if(CMAKE_CROSSCOMPILING)
    # The cross compiler links its own C and C++ libraries, which can be newer than the board's.
    install(CODE "execute_process(COMMAND \"${PROJECT_SOURCE_DIR}/packaging/check-sysroot.sh\" \"${CMAKE_SYSROOT}\"
        \"\$ENV{DESTDIR}${agent}/capture\" \"\$ENV{DESTDIR}${agent}/capturectl\" COMMAND_ERROR_IS_FATAL ANY)"
        COMPONENT daemon)
endif()

include(GNUInstallDirs)
foreach(page capture.8 capturectl.1 capture-log.5)
    string(REGEX MATCH "[0-9]$" section ${page})
    install(FILES "${PROJECT_SOURCE_DIR}/docs/man/${page}" DESTINATION /usr/share/man/man${section} COMPONENT documents)
endforeach()
install(FILES packaging/README.md DESTINATION /usr/share/doc/plinta-capture COMPONENT documents)
install(DIRECTORY packaging/examples DESTINATION /usr/share/doc/plinta-capture COMPONENT documents)

include(CMakePackageConfigHelpers)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/PlintaCommon)
install(TARGETS qz_common EXPORT PlintaCommonTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        INCLUDES DESTINATION include/plinta)
install(DIRECTORY common DESTINATION include/plinta COMPONENT development
        FILES_MATCHING PATTERN "*.h" PATTERN util EXCLUDE)
install(EXPORT PlintaCommonTargets NAMESPACE PlintaCommon:: DESTINATION ${package} COMPONENT development)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/PlintaCommonConfigVersion.cmake" COMPATIBILITY ExactVersion)
install(FILES packaging/PlintaCommonConfig.cmake "${PROJECT_BINARY_DIR}/PlintaCommonConfigVersion.cmake"
        DESTINATION ${package} COMPONENT development)
