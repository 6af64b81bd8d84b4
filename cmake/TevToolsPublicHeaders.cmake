# The public headers are those that TevTools.h includes; nothing else lists them.

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/TevTools.h")
file(STRINGS "${PROJECT_SOURCE_DIR}/TevTools.h" tevtools_public_headers REGEX "^#include \"[^\"]+\"$")
list(TRANSFORM tevtools_public_headers REPLACE "^#include \"([^\"]+)\"$" "\\1")
foreach(header IN LISTS tevtools_public_headers)
    if(NOT EXISTS "${PROJECT_SOURCE_DIR}/${header}")
        message(FATAL_ERROR "TevTools.h includes ${header}, which does not exist")
    endif()
endforeach()
