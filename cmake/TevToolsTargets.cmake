# What every target of this project is compiled with.

set(tevtools_warnings -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Werror
    # Locks and what they guard (base/ThreadSafety.h)
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)

function(tevtools_configure target)
    set_target_properties(${target} PROPERTIES
        CXX_STANDARD 17
        CXX_STANDARD_REQUIRED ON
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    if(TEVTOOLS_STRICT_WARNINGS)
        target_compile_options(${target} PRIVATE ${tevtools_warnings})
    endif()
    if(TEVTOOLS_DEBUG_FILES)
        target_compile_options(${target} PRIVATE
            -g "-fdebug-prefix-map=${PROJECT_SOURCE_DIR}=." "-fdebug-prefix-map=${PROJECT_BINARY_DIR}=.")
    endif()
    if(TEVTOOLS_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${TEVTOOLS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${TEVTOOLS_SANITIZE})
    endif()
endfunction()

# For a target whose sources are compiled as one.
function(tevtools_unify target)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
    # g++ takes them for headers, in which a class must not have members of an anonymous namespace.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endfunction()

# Where wanted, the sources of each room are compiled as one: what they include is read once, which takes a fraction of the
# time. Names that are a source's own are therefore unique within a room.
function(tevtools_unify_rooms target)
    if(NOT TEVTOOLS_UNITY)
        return()
    endif()
    tevtools_unify(${target})
    get_target_property(sources ${target} SOURCES)
    foreach(source IN LISTS sources)
        file(RELATIVE_PATH room "${PROJECT_SOURCE_DIR}" "${source}")
        string(REGEX REPLACE "/.*" "" room "${room}")
        set_source_files_properties("${source}" PROPERTIES UNITY_GROUP ${room})
    endforeach()
endfunction()

# The same in every build for unit tests and the tool, in groups of a few sources of one room, so that several processors
# have equal shares.
function(tevtools_unify_groups target sources_in_group)
    if(NOT TEVTOOLS_UNITY_TESTS)
        return()
    endif()
    tevtools_unify(${target})
    get_target_property(sources ${target} SOURCES)
    foreach(source IN LISTS sources)
        file(RELATIVE_PATH room "${PROJECT_SOURCE_DIR}" "${source}")
        string(REGEX REPLACE "^tests/" "" room "${room}")
        string(REGEX REPLACE "/.*" "" room "${room}")
        if(NOT DEFINED count_${room})
            set(count_${room} 0)
        endif()
        math(EXPR group "${count_${room}} / ${sources_in_group}")
        math(EXPR count_${room} "${count_${room}} + 1")
        set_source_files_properties("${source}" PROPERTIES UNITY_GROUP ${room}_${group})
    endforeach()
endfunction()

# Where wanted, what debuggers need is moved out of the linked file into NAME.debug beside it, which debuggers find by the
# link that is left. Nothing in it names a folder of this machine.
function(tevtools_split_debug_information target)
    if(NOT TEVTOOLS_DEBUG_FILES)
        return()
    endif()
    set(file "$<TARGET_FILE:${target}>")
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND "${CMAKE_OBJCOPY}" --only-keep-debug "${file}" "${file}.debug"
        COMMAND "${CMAKE_STRIP}" --strip-unneeded "${file}"
        COMMAND "${CMAKE_OBJCOPY}" "--add-gnu-debuglink=${file}.debug" "${file}"
        VERBATIM)
endfunction()
