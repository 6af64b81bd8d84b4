# Installs the build into a scratch folder, moves it, and builds a small foreign project against it: with the CMake
# package and with pkg-config, the shared library and the static one. Then the project takes the source tree as a part.

set(scratch "${BUILD_DIR}/install-test")
set(prefix "${scratch}/moved")

function(run)
    list(JOIN ARGN " " line)
    message(STATUS "${line}")
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE "${scratch}")
run("${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${scratch}/installed")
file(RENAME "${scratch}/installed" "${prefix}")

run("${CMAKE_COMMAND}" -S "${SOURCE_DIR}/tests/install" -B "${scratch}/with-cmake" -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${COMPILER}" "-DCMAKE_PREFIX_PATH=${prefix}" "-DWANTED_VERSION=${VERSION}")
run("${CMAKE_COMMAND}" --build "${scratch}/with-cmake")
run("${scratch}/with-cmake/consumer_TevTools")
set(packages TevTools)
if(STATIC)
    run("${scratch}/with-cmake/consumer_Static")
    list(APPEND packages TevTools-static)
endif()

find_program(pkg_config pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} "${prefix}/${LIBDIR}/pkgconfig")
foreach(package IN LISTS packages)
    run("${pkg_config}" --exact-version=${VERSION} ${package})
    execute_process(COMMAND "${pkg_config}" --cflags --libs ${package}
        OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    run("${COMPILER}" -std=c++17 "-DWANTED_VERSION=\"${VERSION}\"" "${SOURCE_DIR}/tests/install/consumer.cpp"
        -o "${scratch}/${package}" ${flags})
endforeach()
set(ENV{LD_LIBRARY_PATH} "${prefix}/${LIBDIR}")
run("${scratch}/TevTools")
unset(ENV{LD_LIBRARY_PATH})
if(STATIC)
    run("${scratch}/TevTools-static") # finds no shared library
endif()

# As a part of another project, the library installs nothing.
run("${CMAKE_COMMAND}" -S "${SOURCE_DIR}/tests/install" -B "${scratch}/with-source" -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${COMPILER}" "-DSUBPROJECT=${SOURCE_DIR}" "-DWANTED_VERSION=${VERSION}")
run("${CMAKE_COMMAND}" --install "${scratch}/with-source" --prefix "${scratch}/nothing")
file(GLOB_RECURSE installed "${scratch}/nothing/*")
if(installed)
    message(FATAL_ERROR "a subproject installs ${installed}")
endif()

if(TOOL)
    run("${prefix}/${BINDIR}/tev" --help)
endif()

# The helper lies where the library looks for it.
file(GLOB helper "${prefix}/${LIBDIR}/TevTools-*/tev-crash-helper")
if(NOT helper)
    message(FATAL_ERROR "the helper for crashes is not installed")
endif()

# gdb finds the script beside the library, and the script its modules.
find_program(gdb gdb)
if(gdb)
    execute_process(COMMAND "${gdb}" -nx -batch -iex "add-auto-load-safe-path ${prefix}/${LIBDIR}"
        -iex "set env LD_LIBRARY_PATH ${prefix}/${LIBDIR}" -ex "break main" -ex run -ex "info pretty-printer"
        "${scratch}/TevTools" OUTPUT_VARIABLE printers ERROR_VARIABLE printers)
    if(NOT printers MATCHES "CCustomData")
        message(FATAL_ERROR "gdb does not load the printers: ${printers}")
    endif()
endif()
foreach(file IN ITEMS tevtools_lldb.py TevTools.natvis)
    file(GLOB found "${prefix}/share/TevTools/debugger/${file}")
    if(NOT found)
        message(FATAL_ERROR "${file} is not installed")
    endif()
endforeach()
