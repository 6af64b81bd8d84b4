# Installs the library, the public headers in their rooms, the CMake package, the pkg-config file and the tool.

include(CMakePackageConfigHelpers)

install(TARGETS TevTools EXPORT TevToolsTargets)
install(TARGETS tev-crash-helper)
if(TARGET tev)
    install(TARGETS tev)
endif()

install(FILES TevTools.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/TevTools")
foreach(header IN LISTS tevtools_public_headers)
    get_filename_component(room "${header}" DIRECTORY)
    install(FILES "${header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/TevTools/${room}")
endforeach()

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/TevTools")
install(EXPORT TevToolsTargets NAMESPACE TevTools:: DESTINATION "${package_dir}")
configure_package_config_file(cmake/TevToolsConfig.cmake.in TevToolsConfig.cmake INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file(TevToolsConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
    "${CMAKE_CURRENT_BINARY_DIR}/TevToolsConfig.cmake"
    "${CMAKE_CURRENT_BINARY_DIR}/TevToolsConfigVersion.cmake"
    DESTINATION "${package_dir}")

# Relative to the file itself, so that an installed tree can be moved.
file(RELATIVE_PATH pkgconfig_prefix "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
configure_file(cmake/TevTools.pc.in TevTools.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/TevTools.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
