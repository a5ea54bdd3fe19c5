# What goes onto the board: the daemon.  The simulator never does; the board brings its own libxenc.so.
#
#   cmake --build build/board --target package    makes plinta-capture_VERSION_ARCHITECTURE.deb

install(FILES ${PROJECT_SOURCE_DIR}/docs/man/capturectl.1 DESTINATION /usr/share/man/man1)
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/capture-log.5 DESTINATION /usr/share/man/man5)
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/capture.8 DESTINATION /usr/share/man/man8)
install(TARGETS capture capturectl RUNTIME DESTINATION /opt/tormel/plinta/agent/latest)

set(CPACK_GENERATOR DEB)
set(CPACK_SET_DESTDIR ON) # the destination is absolute
set(CPACK_INSTALL_PREFIX /opt)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_NAME plinta-capture)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR Tormel)
set(CPACK_PACKAGE_CONTACT "Tormel Plinta maintainers <plinta@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Capture daemon of the Plinta appliance")
set(CPACK_PACKAGE_DESCRIPTION
    "Takes snapshots of the HDMI input on request and publishes them as a JPEG picture and a scaled live view.
It needs the board's own encoder library libxenc.so and a djpeg beside it.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)

# dpkg-shlibdeps knows only packages of the machine it runs on.
if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libgcc-s1, libstdc++6, libjpeg62-turbo, libssl3")
    if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
    elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    endif()
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    if(XENC_LIBRARY)
        get_filename_component(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${XENC_LIBRARY}" DIRECTORY)
    else()
        set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/xenc")
    endif()
endif()
include(CPack)
