# The host application of examples/host: the model, which its plug-ins use too, the plug-ins, and the window.

file(GLOB host_model_sources CONFIGURE_DEPENDS examples/host/model/*.cpp)
add_library(tevtools_host_model SHARED ${host_model_sources})
tevtools_configure(tevtools_host_model)
if(TEVTOOLS_SANITIZE) # which takes a fraction of the time to compile
    target_compile_options(tevtools_host_model PRIVATE -O0)
endif()
target_link_libraries(tevtools_host_model PUBLIC TevTools)
# Plug-ins derive from its classes.
set_target_properties(tevtools_host_model PROPERTIES
    CXX_VISIBILITY_PRESET default
    WINDOWS_EXPORT_ALL_SYMBOLS ON)

# Tests have plug-ins of a later version.
foreach(kind IN ITEMS "" "-newer")
    set(host_plugin_dir${kind} "${PROJECT_BINARY_DIR}/host-plugins${kind}")
    file(GLOB host_plugin_sources CONFIGURE_DEPENDS examples/host/plugins/*.cpp)
    if(kind)
        file(GLOB host_plugin_sources CONFIGURE_DEPENDS tests/qt/host/plugins/*.cpp)
    endif()
    foreach(source IN LISTS host_plugin_sources)
        get_filename_component(name "${source}" NAME_WE)
        set(plugin host_${name}${kind})
        add_library(${plugin} MODULE "${source}")
        tevtools_configure(${plugin})
        target_link_libraries(${plugin} PRIVATE tevtools_host_model)
        set_target_properties(${plugin} PROPERTIES
            PREFIX "" OUTPUT_NAME ${name} LIBRARY_OUTPUT_DIRECTORY "${host_plugin_dir${kind}}"
            WINDOWS_EXPORT_ALL_SYMBOLS ON)
        # A unique symbol would keep the plug-in in memory after it is closed.
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            target_compile_options(${plugin} PRIVATE -fno-gnu-unique)
        endif()
        list(APPEND host_plugins ${plugin})
    endforeach()
endforeach()

file(GLOB host_sources CONFIGURE_DEPENDS examples/host/window/*.cpp examples/host/window/*.h)
add_library(tevtools_qt_host STATIC ${host_sources})
tevtools_configure_qt(tevtools_qt_host)
target_link_libraries(tevtools_qt_host PUBLIC tevtools_host_model TevToolsQt Qt6::Widgets)
target_compile_definitions(tevtools_qt_host INTERFACE
    HOST_PROGRAM="$<TARGET_FILE:host>" HOST_PLUGIN_DIR="${host_plugin_dir}"
    HOST_NEWER_PLUGIN_DIR="${host_plugin_dir-newer}")
add_dependencies(tevtools_qt_host ${host_plugins})

add_executable(host "${PROJECT_SOURCE_DIR}/examples/host/main.cpp")
tevtools_configure_qt(host)
target_link_libraries(host PRIVATE tevtools_qt_host)
list(APPEND qt_tests host)
