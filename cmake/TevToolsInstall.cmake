# Installs the library, the public headers in their rooms, the CMake package, the pkg-config file, the tool and what
# debuggers load.

include(CMakePackageConfigHelpers)

install(TARGETS TevTools EXPORT TevToolsTargets)
install(TARGETS tev-crash-helper)
if(TARGET tev)
    install(TARGETS tev)
endif()

install(FILES TevTools.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/TevTools")
foreach(header IN LISTS tevtools_public_headers tevtools_standalone_headers)
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

# gdb loads the script that lies beside the library and has its name, or the one in a folder of its own for libraries of
# the system. The script finds the modules relative to itself, so that an installed tree can be moved.
set(debugger_dir "${CMAKE_INSTALL_DATADIR}/TevTools/debugger")
install(FILES
    debugger/tevtools_values.py debugger/tevtools_gdb.py debugger/tevtools_lldb.py debugger/TevTools.natvis
    DESTINATION "${debugger_dir}")
if(UNIX AND NOT APPLE)
    set(autoload_dir "${CMAKE_INSTALL_LIBDIR}")
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set(autoload_dir "${CMAKE_INSTALL_DATADIR}/gdb/auto-load/usr/${CMAKE_INSTALL_LIBDIR}")
    endif()
    file(RELATIVE_PATH gdb_modules "/prefix/${autoload_dir}" "/prefix/${debugger_dir}")
    configure_file(debugger/autoload.py.in autoload-installed.py @ONLY)
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/autoload-installed.py" DESTINATION "${autoload_dir}"
        RENAME "$<TARGET_FILE_NAME:TevTools>-gdb.py")
    # For programs of the build tree.
    set(gdb_modules "${PROJECT_SOURCE_DIR}/debugger")
    configure_file(debugger/autoload.py.in autoload-built.py @ONLY)
    file(GENERATE OUTPUT "$<TARGET_FILE:TevTools>-gdb.py" INPUT "${CMAKE_CURRENT_BINARY_DIR}/autoload-built.py")
endif()
