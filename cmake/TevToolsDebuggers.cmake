# gdb loads the script that lies beside the library and has its name, or the one in a folder of its own for libraries of
# the system. The script finds the modules relative to itself, so that an installed tree can be moved.

if(UNIX AND NOT APPLE)
    # For programs of the build tree.
    set(gdb_modules "${PROJECT_SOURCE_DIR}/debugger")
    configure_file("${PROJECT_SOURCE_DIR}/debugger/autoload.py.in" autoload-built.py @ONLY)
    file(GENERATE OUTPUT "$<TARGET_FILE:TevTools>-gdb.py" INPUT "${CMAKE_CURRENT_BINARY_DIR}/autoload-built.py")
endif()
if(NOT TEVTOOLS_INSTALL)
    return()
endif()

set(debugger_dir "${CMAKE_INSTALL_DATADIR}/TevTools/debugger")
install(FILES
    debugger/tevtools_values.py debugger/tevtools_gdb.py debugger/tevtools_lldb.py debugger/TevTools.natvis
    DESTINATION "${debugger_dir}" COMPONENT development)
if(UNIX AND NOT APPLE)
    set(autoload_dir "${CMAKE_INSTALL_LIBDIR}")
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set(autoload_dir "${CMAKE_INSTALL_DATADIR}/gdb/auto-load/usr/${CMAKE_INSTALL_LIBDIR}")
    endif()
    file(RELATIVE_PATH gdb_modules "/prefix/${autoload_dir}" "/prefix/${debugger_dir}")
    configure_file("${PROJECT_SOURCE_DIR}/debugger/autoload.py.in" autoload-installed.py @ONLY)
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/autoload-installed.py" DESTINATION "${autoload_dir}"
        RENAME "$<TARGET_FILE_NAME:TevTools>-gdb.py" COMPONENT development)
    if(TEVTOOLS_DEBUG_FILES)
        # Where debuggers look: for files of the system beneath a folder of their own, for others beside them.
        foreach(place IN ITEMS "TevTools:${CMAKE_INSTALL_LIBDIR}" "tev:${CMAKE_INSTALL_BINDIR}"
                "tev-crash-helper:${CMAKE_INSTALL_LIBDIR}/${tevtools_helper_dir}")
            string(REGEX MATCH "^(.*):(.*)$" place "${place}")
            set(folder "${CMAKE_MATCH_2}/.debug")
            if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
                set(folder "lib/debug/usr/${CMAKE_MATCH_2}")
            endif()
            if(TARGET ${CMAKE_MATCH_1})
                install(FILES "$<TARGET_FILE:${CMAKE_MATCH_1}>.debug" DESTINATION "${folder}" COMPONENT debug)
            endif()
        endforeach()
    endif()
endif()
