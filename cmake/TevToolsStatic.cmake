# The static library, TevTools::Static, of the same objects as the shared one. They are linked into one object first: a
# program that uses any of it gets it all, because classes that are created by name when an archive is read have no other
# reference, and names that the shared library hides are hidden in the program, too. What inline functions share with those
# of the program is no longer a group then, of which the linker could leave out a part.

set(static_objects $<TARGET_OBJECTS:tevtools_objects>)
if(TARGET tevtools_miniz)
    list(APPEND static_objects $<TARGET_OBJECTS:tevtools_miniz>)
endif()
set(static_object "${PROJECT_BINARY_DIR}/TevTools.o")
add_custom_command(OUTPUT "${static_object}"
    COMMAND "${CMAKE_LINKER}" -r --force-group-allocation -o "${static_object}" ${static_objects}
    COMMAND "${CMAKE_OBJCOPY}" --localize-hidden $<$<BOOL:${TEVTOOLS_DEBUG_FILES}>:--strip-debug> "${static_object}"
    DEPENDS tevtools_objects ${static_objects}
    COMMAND_EXPAND_LISTS VERBATIM)
set_source_files_properties("${static_object}" PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)

add_library(TevToolsStatic STATIC "${static_object}")
add_library(TevTools::Static ALIAS TevToolsStatic)
set_target_properties(TevToolsStatic PROPERTIES LINKER_LANGUAGE CXX OUTPUT_NAME TevTools EXPORT_NAME Static)
target_compile_features(TevToolsStatic INTERFACE cxx_std_17)
target_compile_definitions(TevToolsStatic INTERFACE TEVTOOLS_STATIC)
target_include_directories(TevToolsStatic INTERFACE
    "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>"
    "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/TevTools>")
target_link_libraries(TevToolsStatic PRIVATE ${tevtools_dependencies} OpenMP::OpenMP_CXX ${CMAKE_DL_LIBS})
if(TARGET Miniz::Miniz AND NOT TARGET tevtools_miniz)
    target_link_libraries(TevToolsStatic PRIVATE miniz::miniz)
endif()
