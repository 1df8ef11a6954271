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
# dpkg-shlibdeps leaves a library out that no installed package brings.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS libvynutils1)
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

if(CMAKE_CROSSCOMPILING)
    # dpkg-shlibdeps knows this machine's libraries only: these are what it finds on the target.
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    set(runtime "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 12)")
    string(APPEND CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS ", ${runtime}, libglib2.0-0 (>= 2.12.0), "
        "libjson-c5 (>= 0.15), libprotobuf32 (>= 3.21.12), libssl3 (>= 3.0.0), "
        "libuuid1 (>= 2.16)")
    string(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ", ${runtime}, libglib2.0-0 (>= 2.12.0), "
        "libjson-c5 (>= 0.15), libprotobuf32 (>= 3.21.12), libzstd1 (>= 1.5.2)")
    set(CPACK_DEBIAN_STANDIN_PACKAGE_DEPENDS
        "libc6 (>= 2.34), libssl3 (>= 3.0.0), libstdc++6 (>= 12), libzstd1 (>= 1.5.2)")
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
endif()

# The papers that each package brings, and the refresh of the linker's cache for the libraries.
set(papers ${PROJECT_BINARY_DIR}/packaging)
string(TIMESTAMP today "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in ${papers}/changelog @ONLY)
execute_process(COMMAND gzip -9nf ${papers}/changelog COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${papers}/triggers "activate-noawait ldconfig\n")
file(CHMOD ${papers}/triggers PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
# Where people look for them.
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
