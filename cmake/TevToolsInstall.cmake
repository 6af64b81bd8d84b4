# Installs, in components of their own: what programs need to run (runtime), what they are built with (development), the
# tool (tool); and for each component of the CMake package, TevTools<Component>Targets.cmake.

include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/TevTools")
function(tevtools_install_component component target)
    install(TARGETS ${target} EXPORT TevTools${component} ${ARGN}
        ARCHIVE COMPONENT development
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)
    install(EXPORT TevTools${component} NAMESPACE TevTools:: FILE TevTools${component}Targets.cmake
        DESTINATION "${package_dir}" COMPONENT development)
endfunction()

tevtools_install_component(Core TevTools)
install(TARGETS tev-crash-helper RUNTIME DESTINATION "${CMAKE_INSTALL_LIBDIR}/${tevtools_helper_dir}" COMPONENT runtime)
if(TARGET TevToolsStatic)
    tevtools_install_component(Static TevToolsStatic)
endif()
if(TARGET tev)
    install(TARGETS tev RUNTIME COMPONENT tool)
    file(GLOB tool_schemas CONFIGURE_DEPENDS tools/tev/schemas/*.json)
    install(FILES ${tool_schemas} DESTINATION "${CMAKE_INSTALL_DATADIR}/TevTools/schemas" COMPONENT tool)
endif()
# The tool describes itself: its manual page, and what shells complete its command lines with.
if(TARGET tev AND UNIX AND NOT CMAKE_CROSSCOMPILING AND NOT TEVTOOLS_SANITIZE)
    set(pages "${CMAKE_CURRENT_BINARY_DIR}/pages")
    file(MAKE_DIRECTORY "${pages}")
    add_custom_command(TARGET tev POST_BUILD VERBATIM
        COMMAND sh -c "\"$1\" help --man >tev.1 && for shell in bash zsh fish; do \"$1\" completion $shell >tev.$shell || exit 1; done"
            sh "$<TARGET_FILE:tev>"
        WORKING_DIRECTORY "${pages}")
    install(FILES "${pages}/tev.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tool)
    install(FILES "${pages}/tev.bash" DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME tev
        COMPONENT tool)
    install(FILES "${pages}/tev.zsh" DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions" RENAME _tev
        COMPONENT tool)
    install(FILES "${pages}/tev.fish" DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d" COMPONENT tool)
endif()

install(FILES TevTools.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/TevTools" COMPONENT development)
foreach(header IN LISTS tevtools_public_headers tevtools_standalone_headers)
    get_filename_component(room "${header}" DIRECTORY)
    install(FILES "${header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/TevTools/${room}" COMPONENT development)
endforeach()

configure_package_config_file(cmake/TevToolsConfig.cmake.in TevToolsConfig.cmake INSTALL_DESTINATION "${package_dir}")
configure_file(cmake/TevToolsConfigVersion.cmake.in TevToolsConfigVersion.cmake @ONLY)
install(FILES
    "${CMAKE_CURRENT_BINARY_DIR}/TevToolsConfig.cmake"
    "${CMAKE_CURRENT_BINARY_DIR}/TevToolsConfigVersion.cmake"
    cmake/TevToolsStaticDependencies.cmake
    DESTINATION "${package_dir}" COMPONENT development)

# Relative to the file itself, so that an installed tree can be moved.
file(RELATIVE_PATH pkgconfig_prefix "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
list(TRANSFORM OpenMP_CXX_LIB_NAMES PREPEND "-l" OUTPUT_VARIABLE pkgconfig_openmp)
list(JOIN pkgconfig_openmp " " pkgconfig_openmp)
foreach(package IN ITEMS TevTools TevTools-static)
    configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
    if(package STREQUAL "TevTools" OR TARGET TevToolsStatic)
        install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${package}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
            COMPONENT development)
    endif()
endforeach()
