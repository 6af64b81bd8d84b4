# Packages of Debian, by `cpack -G DEB` in the build folder: the shared library, what programs are built with, the tool, and
# debug information where the build has it. scripts/package builds and checks them.

set(CPACK_PACKAGE_NAME tevtools)
set(CPACK_PACKAGE_VENDOR "TevTools")
set(CPACK_PACKAGE_CONTACT "${TEVTOOLS_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
# What a library depends on is read from its files; the package of ours does not exist yet when that is done.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_DESKTOP-RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/debian/triggers")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/debian/triggers")

set(library_package libtevtools${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(this_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(about "TevTools has strings, exceptions with run-time classes, files, containers,
archives, a typed store and a registry for settings, threads, time, the log,
file types, colours, a folder watcher and crash reports.")
function(tevtools_package component name section depends description)
    string(TOUPPER ${component} prefix)
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
    set(CPACK_DEBIAN_${prefix}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(CPACK_DEBIAN_${prefix}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${prefix}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${prefix}_DESCRIPTION "${about}\n.\nThis package has ${description}." PARENT_SCOPE)
    # Debian wants these in each package.
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set(doc_dir "${CMAKE_INSTALL_DATADIR}/doc/${name}")
        install(FILES packaging/debian/copyright "${PROJECT_BINARY_DIR}/changelog.Debian.gz" "${PROJECT_BINARY_DIR}/changelog.gz"
            DESTINATION "${doc_dir}" COMPONENT ${component})
    endif()
endfunction()

if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    configure_file(packaging/debian/changelog.in changelog.Debian @ONLY)
    configure_file(CHANGELOG.md changelog COPYONLY)
    execute_process(COMMAND gzip -9nf changelog.Debian changelog
        WORKING_DIRECTORY "${PROJECT_BINARY_DIR}" COMMAND_ERROR_IS_FATAL ANY)
endif()
tevtools_package(runtime ${library_package} libs "" "the shared library")
tevtools_package(development libtevtools-dev libdevel "${library_package} ${this_version}" "what programs are built with")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
# What the static library is linked with.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "zlib1g-dev, libbz2-dev, libzstd-dev, liblzma-dev, libzip-dev, libsqlite3-dev, libssl-dev, pkg-config")
function(tevtools_compress_manual component)
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr") # where manual pages are compressed
        foreach(program IN LISTS ARGN)
            install(CODE "execute_process(COMMAND gzip -9nf \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man1/${program}.1\"
                COMMAND_ERROR_IS_FATAL ANY)" COMPONENT ${component})
        endforeach()
    endif()
endfunction()
if(TARGET tev)
    tevtools_compress_manual(tool tev)
    tevtools_package(tool tevtools utils "${library_package} ${this_version}" "the tool tev")
endif()
if(TARGET TevToolsQt)
    set(qt_package libtevtools-qt${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
    tevtools_package(desktop-runtime ${qt_package} libs "${library_package} ${this_version}"
        "its dialogs for programs of Qt 6")
    tevtools_package(desktop-development libtevtools-qt-dev libdevel
        "libtevtools-dev ${this_version}, ${qt_package} ${this_version}, qt6-base-dev"
        "what programs with these dialogs are built with")
    set(CPACK_DEBIAN_DESKTOP-DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
    tevtools_package(desktop tevtools-desktop utils "${qt_package} ${this_version}"
        "the programs of the desktop: a viewer of logs, a\nbrowser of settings, and the dialog of crash reports")
    tevtools_compress_manual(desktop tev-log tev-settings)
    # Their icons, and the words of standard dialogs.
    set(CPACK_DEBIAN_DESKTOP_PACKAGE_RECOMMENDS "libqt6svg6, qt6-translations-l10n, xdg-utils")
endif()
if(TEVTOOLS_DEBUG_FILES)
    tevtools_package(debug ${library_package}-dbg debug "${library_package} ${this_version}"
        "the debug information of the library and the tool")
    set(CPACK_DEBIAN_DEBUG_PACKAGE_SHLIBDEPS OFF)
endif()

include(CPack)
