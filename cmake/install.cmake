# What is installed, in the components library, dev, tools and standin: one package each.
include(CMakePackageConfigHelpers)

# A folder of our own: names such as logger.h and enums.pb.h would collide in a shared one.
set(vyn_install_include ${CMAKE_INSTALL_INCLUDEDIR}/vyn_proto)
set(vyn_install_share ${CMAKE_INSTALL_DATADIR}/vyn_proto)
set(vyn_install_cmake ${CMAKE_INSTALL_LIBDIR}/cmake/vyn_proto)

# Installed programs and libraries find each other without LD_LIBRARY_PATH, and may be moved together.
# Below /usr the dynamic linker finds them by itself.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    file(RELATIVE_PATH vyn_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(vyn_proto PROPERTIES INSTALL_RPATH $ORIGIN)
    if(VYN_BUILD_TOOLS)
        set_target_properties(vynpkt PROPERTIES INSTALL_RPATH $ORIGIN/${vyn_bin_to_lib})
    endif()
endif()

install(TARGETS vyn_proto
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT dev)
if(NOT VYN_UTILS_LIBRARY)
    install(TARGETS vynutils
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT standin NAMELINK_SKIP)
endif()
if(VYN_BUILD_TOOLS)
    install(TARGETS vynpkt RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()

install(DIRECTORY
    ${PROJECT_SOURCE_DIR}/include/ ${PROJECT_BINARY_DIR}/include/ ${VYN_GENERATED_DIR}/
    DESTINATION ${vyn_install_include} COMPONENT dev FILES_MATCHING PATTERN *.h)
install(FILES ${vyn_schema_files} DESTINATION ${vyn_install_share}/protos COMPONENT dev)

install(FILES ${VYN_DESCRIPTOR_SET} DESTINATION ${vyn_install_share} COMPONENT dev)

# Paths in the pkg-config file count from its own place, so the installed tree can be moved.
file(RELATIVE_PATH vyn_pc_to_prefix
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" vyn_pc_to_prefix ${vyn_pc_to_prefix})
foreach(folder LIBDIR INCLUDEDIR DATADIR)
    file(RELATIVE_PATH vyn_pc_${folder} ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_${folder}})
endforeach()
configure_file(${PROJECT_SOURCE_DIR}/cmake/vyn_proto.pc.in ${PROJECT_BINARY_DIR}/vyn_proto.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vyn_proto.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# install(EXPORT) would have services look for our private libraries.
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vyn_protoConfig.cmake.in
    ${PROJECT_BINARY_DIR}/vyn_protoConfig.cmake
    INSTALL_DESTINATION ${vyn_install_cmake}
    PATH_VARS CMAKE_INSTALL_LIBDIR vyn_install_include vyn_install_share)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vyn_protoConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vyn_protoConfig.cmake
    ${PROJECT_BINARY_DIR}/vyn_protoConfigVersion.cmake
    DESTINATION ${vyn_install_cmake} COMPONENT dev)

# What a service developer reads where only the library is installed.
install(FILES ${PROJECT_SOURCE_DIR}/SECURITY.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/hello ${PROJECT_SOURCE_DIR}/examples/service
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT dev)
if(NOT VYN_PACKAGES)
    # A Debian package tells its licence in the file copyright.
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE
        DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
endif()
