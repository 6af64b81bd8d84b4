# Installs the build into a scratch folder, moves it, and builds a small foreign project with the component Qt; then looks
# whether programs, icons and descriptions stand where the desktop expects them.

set(scratch "${BUILD_DIR}/desktop-install-test")
set(prefix "${scratch}/moved")

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE "${scratch}")
foreach(component IN ITEMS runtime development desktop-runtime desktop-development desktop)
    run("${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${scratch}/installed" --component ${component})
endforeach()
file(RENAME "${scratch}/installed" "${prefix}")
run("${CMAKE_COMMAND}" -S "${SOURCE_DIR}/tests/install/qt" -B "${scratch}/foreign" -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${COMPILER}" "-DCMAKE_CXX_FLAGS=${FLAGS}" "-DCMAKE_PREFIX_PATH=${prefix}")
run("${CMAKE_COMMAND}" --build "${scratch}/foreign")
run("${scratch}/foreign/foreign")

find_program(validate desktop-file-validate)
file(GLOB programs RELATIVE "${prefix}/bin" "${prefix}/bin/tev-*")
list(APPEND programs tev-crash-dialog)
foreach(program IN LISTS programs)
    set(description "${prefix}/share/applications/${program}.desktop")
    foreach(file IN ITEMS "${description}" "${prefix}/share/icons/hicolor/scalable/apps/${program}.svg")
        if(NOT EXISTS "${file}")
            message(FATAL_ERROR "${file} is not installed")
        endif()
    endforeach()
    if(validate)
        run("${validate}" "${description}")
    endif()
endforeach()
file(GLOB dialog "${prefix}/lib*/TevTools-*/tev-crash-dialog" "${prefix}/lib*/*/TevTools-*/tev-crash-dialog")
if(NOT dialog)
    message(FATAL_ERROR "the dialog of crashes is not where the library looks for it")
endif()
