# Installs the desktop, in components of their own: its library, what programs are built with, and its programs with their
# icons and descriptions. The component Qt of the CMake package is TevTools::Qt.

set(qt_public_headers CQtUserInterface QtExport QtText)
list(TRANSFORM qt_public_headers PREPEND "qt/toolkit/")
list(TRANSFORM qt_public_headers APPEND ".h")
install(FILES ${qt_public_headers} DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/TevTools/qt/toolkit"
    COMPONENT desktop-development)
target_include_directories(TevToolsQt INTERFACE "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/TevTools>")
install(TARGETS TevToolsQt EXPORT TevToolsQt
    LIBRARY COMPONENT desktop-runtime NAMELINK_COMPONENT desktop-development)
install(EXPORT TevToolsQt NAMESPACE TevTools:: FILE TevToolsQtTargets.cmake
    DESTINATION "${package_dir}" COMPONENT desktop-development)
install(FILES cmake/TevToolsQtDependencies.cmake DESTINATION "${package_dir}" COMPONENT desktop-development)
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr") # where libraries of the system are
    set_target_properties(TevToolsQt PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

# The dialog of crashes lies where the library looks for it, the other programs where people do.
function(tevtools_install_program program folder destination)
    if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        file(RELATIVE_PATH libraries "${CMAKE_INSTALL_PREFIX}/${destination}" "${CMAKE_INSTALL_FULL_LIBDIR}")
        set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries}")
    endif()
    install(TARGETS ${program} RUNTIME DESTINATION "${destination}" COMPONENT desktop)
    install(FILES "qt/${folder}/${program}.desktop" DESTINATION "${CMAKE_INSTALL_DATADIR}/applications" COMPONENT desktop)
    install(FILES "qt/${folder}/${program}.svg" DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps"
        COMPONENT desktop)
endfunction()
foreach(folder IN ITEMS log settings)
    if(TARGET tev-${folder} AND EXISTS "${PROJECT_SOURCE_DIR}/qt/${folder}/tev-${folder}.desktop")
        tevtools_install_program(tev-${folder} ${folder} "${CMAKE_INSTALL_BINDIR}")
        install(FILES "qt/${folder}/tev-${folder}.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT desktop)
    endif()
endforeach()
tevtools_install_program(tev-crash-dialog crash "${CMAKE_INSTALL_LIBDIR}/${tevtools_helper_dir}")
install(FILES packaging/desktop/tevtools.xml DESTINATION "${CMAKE_INSTALL_DATADIR}/mime/packages" COMPONENT desktop)
