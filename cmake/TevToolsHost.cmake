# The host application of examples/host: the model, which its plug-ins use too, the plug-ins, and the window.

file(GLOB host_model_sources CONFIGURE_DEPENDS examples/host/model/*.cpp)
add_library(tevtools_host_model SHARED ${host_model_sources})
tevtools_configure(tevtools_host_model)
target_link_libraries(tevtools_host_model PUBLIC TevTools)
# Plug-ins derive from its classes.
set_target_properties(tevtools_host_model PROPERTIES
    CXX_VISIBILITY_PRESET default
    WINDOWS_EXPORT_ALL_SYMBOLS ON)

set(host_plugin_dir "${PROJECT_BINARY_DIR}/host-plugins")
file(GLOB host_plugin_sources CONFIGURE_DEPENDS examples/host/plugins/*.cpp)
foreach(source IN LISTS host_plugin_sources)
    get_filename_component(name "${source}" NAME_WE)
    add_library(host_${name} MODULE "${source}")
    tevtools_configure(host_${name})
    target_link_libraries(host_${name} PRIVATE tevtools_host_model)
    set_target_properties(host_${name} PROPERTIES
        PREFIX "" OUTPUT_NAME ${name} LIBRARY_OUTPUT_DIRECTORY "${host_plugin_dir}")
    # A unique symbol would keep the plug-in in memory after it is closed.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(host_${name} PRIVATE -fno-gnu-unique)
    endif()
    list(APPEND host_plugins host_${name})
endforeach()

file(GLOB host_sources CONFIGURE_DEPENDS examples/host/window/*.cpp examples/host/window/*.h)
if(host_sources)
    add_library(tevtools_qt_host STATIC ${host_sources})
    tevtools_configure_qt(tevtools_qt_host)
    target_link_libraries(tevtools_qt_host PUBLIC tevtools_host_model TevToolsQt Qt6::Widgets)
    target_compile_definitions(tevtools_qt_host PUBLIC HOST_PLUGIN_DIR="${host_plugin_dir}")
    add_executable(host "${PROJECT_SOURCE_DIR}/examples/host/main.cpp")
    tevtools_configure_qt(host)
    target_link_libraries(host PRIVATE tevtools_qt_host)
    add_dependencies(host ${host_plugins})
else()
    add_library(tevtools_qt_host INTERFACE)
    target_link_libraries(tevtools_qt_host INTERFACE tevtools_host_model)
endif()
