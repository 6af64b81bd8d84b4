# Installs the build into a scratch folder, moves it, and builds a small foreign project against it: with the CMake
# package and with pkg-config.

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
run("${scratch}/with-cmake/consumer")

find_program(pkg_config pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} "${prefix}/${LIBDIR}/pkgconfig")
run("${pkg_config}" --exact-version=${VERSION} TevTools)
execute_process(COMMAND "${pkg_config}" --cflags --libs TevTools
    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags UNIX_COMMAND "${flags}")
file(MAKE_DIRECTORY "${scratch}/with-pkg-config")
run("${COMPILER}" -std=c++17 "${SOURCE_DIR}/tests/install/consumer.cpp" -o "${scratch}/with-pkg-config/consumer" ${flags})
set(ENV{LD_LIBRARY_PATH} "${prefix}/${LIBDIR}")
run("${scratch}/with-pkg-config/consumer")
unset(ENV{LD_LIBRARY_PATH})

if(TOOL)
    run("${prefix}/${BINDIR}/tev" --help)
endif()

# The helper lies where the library looks for it.
if(NOT EXISTS "${prefix}/${BINDIR}/tev-crash-helper")
    message(FATAL_ERROR "the helper for crashes is not installed")
endif()

# gdb finds the script beside the library, and the script its modules.
find_program(gdb gdb)
if(gdb)
    execute_process(COMMAND "${gdb}" -nx -batch -iex "add-auto-load-safe-path ${prefix}/${LIBDIR}"
        -iex "set env LD_LIBRARY_PATH ${prefix}/${LIBDIR}" -ex "break main" -ex run -ex "info pretty-printer"
        "${scratch}/with-pkg-config/consumer" OUTPUT_VARIABLE printers ERROR_VARIABLE printers)
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
