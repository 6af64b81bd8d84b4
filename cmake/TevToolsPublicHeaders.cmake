# The public headers are those that TevTools.h includes, and a few that stand by themselves.

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/TevTools.h"
    "${PROJECT_SOURCE_DIR}/scripts/standalone-headers.txt")
file(STRINGS "${PROJECT_SOURCE_DIR}/TevTools.h" tevtools_public_headers REGEX "^#include \"[^\"]+\"$")
list(TRANSFORM tevtools_public_headers REPLACE "^#include \"([^\"]+)\"$" "\\1")
file(STRINGS "${PROJECT_SOURCE_DIR}/scripts/standalone-headers.txt" tevtools_standalone_headers REGEX "^[^#]")
foreach(header IN LISTS tevtools_public_headers tevtools_standalone_headers)
    if(NOT EXISTS "${PROJECT_SOURCE_DIR}/${header}")
        message(FATAL_ERROR "${header} is listed as public, but does not exist")
    endif()
endforeach()
