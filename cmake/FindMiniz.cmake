# Finds miniz: the system's, or the amalgamated header that scripts/setup brought to third_party/miniz.
# Gives the target Miniz::Miniz, or leaves Miniz_FOUND false.

find_package(miniz CONFIG QUIET)
if(TARGET miniz::miniz)
    if(NOT TARGET Miniz::Miniz)
        add_library(Miniz::Miniz INTERFACE IMPORTED)
        target_link_libraries(Miniz::Miniz INTERFACE miniz::miniz)
    endif()
    set(Miniz_FOUND TRUE)
    return()
endif()

set(Miniz_AMALGAMATION "${PROJECT_SOURCE_DIR}/third_party/miniz/miniz.h")
if(NOT EXISTS "${Miniz_AMALGAMATION}")
    set(Miniz_FOUND FALSE)
    if(Miniz_FIND_REQUIRED)
        message(FATAL_ERROR "miniz is neither installed nor in third_party/miniz: scripts/setup brings it")
    endif()
    return()
endif()

# The one file holds declarations and implementation. Users get the part before the first implementation's licence text;
# one private C source, whose symbols are hidden, gets it all.
set(miniz_dir "${PROJECT_BINARY_DIR}/miniz")
file(READ "${Miniz_AMALGAMATION}" miniz_text)
string(FIND "${miniz_text}" "#endif /* MINIZ_NO_ARCHIVE_APIS */" miniz_end)
if(miniz_end EQUAL -1)
    message(FATAL_ERROR "third_party/miniz/miniz.h is not the file that scripts/setup brings")
endif()
string(SUBSTRING "${miniz_text}" 0 ${miniz_end} miniz_declarations)
# Its file times, which are not used, would read the time zone's file for each entry.
file(CONFIGURE OUTPUT "${miniz_dir}/miniz.h" CONTENT
    "#pragma once\n#define MINIZ_NO_TIME\n@miniz_declarations@#endif\n" @ONLY)
file(CONFIGURE OUTPUT "${miniz_dir}/miniz.c" CONTENT
    "#define MINIZ_NO_TIME\n#include \"@Miniz_AMALGAMATION@\"\n" @ONLY)

enable_language(C)
add_library(tevtools_miniz STATIC "${miniz_dir}/miniz.c")
target_compile_definitions(tevtools_miniz PUBLIC MINIZ_NO_ZLIB_COMPATIBLE_NAMES MINIZ_NO_ARCHIVE_WRITING_APIS)
# Its unaligned loads go through pointers to integers, which the language does not allow.
target_compile_definitions(tevtools_miniz PRIVATE MINIZ_USE_UNALIGNED_LOADS_AND_STORES=0)
target_include_directories(tevtools_miniz SYSTEM INTERFACE "${miniz_dir}")
target_compile_options(tevtools_miniz PRIVATE -w)
set_target_properties(tevtools_miniz PROPERTIES C_VISIBILITY_PRESET hidden POSITION_INDEPENDENT_CODE ON)
if(TEVTOOLS_SANITIZE)
    target_compile_options(tevtools_miniz PRIVATE -O0 -fsanitize=${TEVTOOLS_SANITIZE} -fno-sanitize-recover=all)
endif()
add_library(Miniz::Miniz ALIAS tevtools_miniz)
set(Miniz_FOUND TRUE)
