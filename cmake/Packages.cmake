# Debian packages of what is installed: cpack -G DEB.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME moxel-client)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "The Moxel developers <moxel@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Programs of one package are linked with the library of another, which no installed package provides yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/Client")
# What packages of applications depend on: this version of the library or a later one with the same soname.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME "libmoxelclient${PROJECT_VERSION_MAJOR}")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "client library of the driver for 3D motion controllers
Applications link it to receive motion and button events of six-axis
controllers, and to hand the driver their commands.")

set(same_version "(= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libmoxelclient-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libmoxelclient${PROJECT_VERSION_MAJOR} ${same_version}")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "development files of the client library for 3D motion controllers
Headers, pkg-config and CMake files, and a daemon that runs inside the
process of an application's tests.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME moxel-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libmoxelclient${PROJECT_VERSION_MAJOR} ${same_version}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "daemon and tools of the driver for 3D motion controllers
moxeld serves applications, moxelctl shows what arrives at them and what
the daemon does; with udev rules, a user service and traces.")

# Every package brings its licence, where Debian's packages have it.
foreach(component ${CPACK_COMPONENTS_ALL})
    string(TOUPPER ${component} upper)
    install(FILES LICENSE DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}"
        RENAME copyright COMPONENT ${component})
endforeach()
include(CPack)
