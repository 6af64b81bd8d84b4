# One libFuzzer executable for each file fuzz/<Name>Fuzz.cpp, named fuzz_<Name>; its seeds are in fuzz/corpus/<Name>.

if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "Fuzz targets need clang")
endif()

file(GLOB fuzz_sources CONFIGURE_DEPENDS fuzz/*Fuzz.cpp)
foreach(source IN LISTS fuzz_sources)
    get_filename_component(name "${source}" NAME_WE)
    string(REGEX REPLACE "Fuzz$" "" name "${name}")
    add_executable(fuzz_${name} "${source}")
    tevtools_configure(fuzz_${name})
    target_link_libraries(fuzz_${name} PRIVATE tevtools_objects)
    target_compile_options(fuzz_${name} PRIVATE -fsanitize=fuzzer-no-link)
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    list(APPEND fuzz_targets fuzz_${name})
endforeach()
# A function for each way to combine arguments: no other target takes as long to compile.
set_source_files_properties(fuzz/FormatFuzz.cpp PROPERTIES COMPILE_OPTIONS -O0)
add_custom_target(fuzz_targets DEPENDS ${fuzz_targets})

# The tool's output of preference files, and of everything as JSON.
target_link_libraries(fuzz_Preferences PRIVATE tev_objects)
target_link_libraries(fuzz_TevJson PRIVATE tev_objects)

# The host's readers and what draws their models.
target_sources(fuzz_Obj PRIVATE examples/host/model/ObjReader.cpp examples/host/model/Renderer.cpp)
