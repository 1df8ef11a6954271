# Debian packages, one a component: cpack, or ./dev package.
set(packages_library libvyn-proto1)
set(packages_dev libvyn-proto-dev)
set(packages_tools vyn-proto-tools)
set(packages_standin libvynutils1-standin)
set(CPACK_COMPONENTS_ALL library dev tools)
if(NOT VYN_UTILS_LIBRARY)
    list(APPEND CPACK_COMPONENTS_ALL standin)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vyn-proto)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Maintainers of libvyn_proto <maintainers@vyn-proto.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(exact "(= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "Message library of the telematics unit
Schemas, envelope and conversions of the packets that the services of the
unit exchange with the cloud and with each other.")
# dpkg-shlibdeps leaves out a library that no installed package brings.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS libvynutils1)
if(VYN_PACK_RELOCATIONS)
    # dpkg-shlibdeps does not see which dynamic linker they need.
    string(APPEND CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS ", libc6 (>= 2.36)")
endif()
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "Message library of the telematics unit, to build services
Headers, generated classes, schemas with their descriptor set, and the files
for pkg-config and CMake.")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libvyn-proto1 ${exact}, libprotobuf-dev")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "Command for packets of the telematics unit
vynpkt makes, reads, checks and repairs packets and packet files.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libvyn-proto1 (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_STANDIN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_STANDIN_DESCRIPTION "Stand-in for the utility library of the telematics unit
Base64 and decompression for machines that lack the unit's own library.")
set(CPACK_DEBIAN_STANDIN_PACKAGE_PROVIDES "libvynutils1 ${exact}")
set(CPACK_DEBIAN_STANDIN_PACKAGE_CONFLICTS libvynutils1)

set(papers ${PROJECT_BINARY_DIR}/packaging)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
if(CMAKE_CROSSCOMPILING)
    # dpkg-shlibdeps looks into this machine's packages, unless it is told to look into the sysroot.
    if(NOT EXISTS ${CMAKE_SYSROOT}/DEBIAN/symbols)
        message(FATAL_ERROR "Packages for another architecture need a sysroot that "
            "packaging/root.sh made: their dependencies are read from its DEBIAN/symbols")
    endif()
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    file(WRITE ${papers}/shlibdeps
        "#!/bin/sh\nDEB_HOST_ARCH=armhf exec dpkg-shlibdeps '-S${CMAKE_SYSROOT}' \"$@\"\n")
    file(CHMOD ${papers}/shlibdeps PERMISSIONS OWNER_READ OWNER_EXECUTE)
    file(WRITE ${papers}/cross.cmake
        "set(SHLIBDEPS_EXECUTABLE \"${papers}/shlibdeps\" CACHE FILEPATH \"\")\n")
    set(CPACK_PROJECT_CONFIG_FILE ${papers}/cross.cmake)
endif()

# Each package has a changelog and a copyright; a library has the linker's cache refreshed.
string(TIMESTAMP today "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in ${papers}/changelog @ONLY)
execute_process(COMMAND gzip -9nf ${papers}/changelog COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${papers}/triggers "activate-noawait ldconfig\n")
file(CHMOD ${papers}/triggers PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
# A link to the examples from the folder of the package.
file(CREATE_LINK ../vyn_proto/examples ${papers}/examples SYMBOLIC)
install(FILES ${papers}/examples
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${packages_dev} COMPONENT dev)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} name)
    set(CPACK_DEBIAN_${name}_PACKAGE_NAME ${packages_${component}})
    if(component MATCHES "library|standin")
        set(CPACK_DEBIAN_${name}_PACKAGE_CONTROL_EXTRA ${papers}/triggers)
    endif()
    install(FILES ${papers}/changelog.gz ${PROJECT_SOURCE_DIR}/packaging/copyright
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${packages_${component}} COMPONENT ${component})
endforeach()
include(CPack)
