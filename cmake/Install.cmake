# What `cmake --install` copies, and the Debian package of the tools. A build in build/ finds its files
# in the tree; one that is to be installed has to know their places beforehand: preset `package`.
#
#   bin/                    lumokm, lumo-secureapp
#   LIBDIR/lumokeymaster4/  the library under the name that it has on a device, and what stands in
#                           for the platform's; nobody else links them, so they stay out of LIBDIR
#   share/                  properties, manual pages, completion, documents
#   lib/systemd/user/       a unit for the daemon

if(NOT LUMO_INSTALLED)
    install(CODE "message(FATAL_ERROR \"This build is for its own folder. To install: \
cmake --preset package -DCMAKE_INSTALL_PREFIX=DIR, ninja -C build/package, \
cmake --install build/package\")")
    return()
endif()

set(package lumokeymaster4-tools)
set(private_libraries ${CMAKE_INSTALL_LIBDIR}/lumokeymaster4)
set(documents ${CMAKE_INSTALL_DATADIR}/doc/${package})

file(RELATIVE_PATH from_tools ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR}/lumokeymaster4)
set_target_properties(lumokm lumo-secureapp PROPERTIES INSTALL_RPATH "$ORIGIN/${from_tools}")
set_target_properties(lumokeymaster4 PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS lumokm lumo-secureapp RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS lumokeymaster4 lumo_transport lumo_no_archiver
    LIBRARY DESTINATION ${private_libraries})

install(FILES host/platform/share/build.prop DESTINATION ${CMAKE_INSTALL_DATADIR}/lumokeymaster4)
# Pages and completions are made by a program of this build.
add_custom_target(package_manual ALL DEPENDS manual)
install(DIRECTORY ${CMAKE_BINARY_DIR}/share/man ${CMAKE_BINARY_DIR}/share/bash-completion
    DESTINATION ${CMAKE_INSTALL_DATADIR})
install(FILES README.md CHANGELOG.md SECURITY.md DESTINATION ${documents})
install(DIRECTORY docs/ DESTINATION ${documents}/docs FILES_MATCHING PATTERN *.md PATTERN *.svg)
configure_file(packaging/lumo-secureapp.service.in lumo-secureapp.service @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/lumo-secureapp.service DESTINATION lib/systemd/user)

# Of the Debian package alone.
install(FILES packaging/copyright ${CMAKE_BINARY_DIR}/changelog.gz DESTINATION ${documents}
    COMPONENT debian EXCLUDE_FROM_ALL)
install(FILES packaging/${package}.lintian-overrides RENAME ${package}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT debian EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${package})
set(CPACK_PACKAGE_CONTACT "liblumokeymaster4 maintainers <maintainers@lumokeymaster.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "keymaster command line and software secure application")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"lumokm makes and uses keys through the keymaster 4.0 and 4.1 interfaces of
liblumokeymaster4, as a client on the platform does, and tries what a keymaster
can do. lumo-secureapp plays the secure world behind it on a workstation, so
that neither needs a device.")
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_COMPONENTS_ALL Unspecified debian)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${CMAKE_BINARY_DIR} ${CMAKE_BINARY_DIR}/host/transport ${CMAKE_BINARY_DIR}/host/platform
    ${LUMO_ANDROID_LIBDIR})
include(CPack)
