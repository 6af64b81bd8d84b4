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
    if(TEVTOOLS_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${TEVTOOLS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${TEVTOOLS_SANITIZE})
    endif()
endfunction()
