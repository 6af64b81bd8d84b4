# One executable with every benchmark and the libraries that they are compared with.

find_package(benchmark REQUIRED)
find_package(fmt REQUIRED)
find_package(ICU COMPONENTS uc i18n REQUIRED)
find_package(Boost QUIET COMPONENTS serialization) # compared with where it is there, as cereal is

file(GLOB benchmark_sources CONFIGURE_DEPENDS benchmarks/*.cpp)
if(benchmark_sources)
    # The kernels of text are hidden in the library and are compiled here once more, to be measured without some instructions.
    add_executable(tevtools_benchmarks ${benchmark_sources}
        text/TextSearch.cpp text/UtfAvx2.cpp text/UtfAvx2Encoding.cpp text/UtfConversion.cpp)
    tevtools_configure(tevtools_benchmarks)
    target_link_libraries(tevtools_benchmarks PRIVATE
        TevTools benchmark::benchmark benchmark::benchmark_main fmt::fmt ICU::uc ICU::i18n)
    # Peers that are compared with where they are there.
    find_package(absl QUIET)
    find_package(Qt6 COMPONENTS Core Gui QUIET)
    pkg_check_modules(Dconf QUIET IMPORTED_TARGET dconf)
    foreach(peer IN ITEMS absl::flat_hash_map Qt6::Core Qt6::Gui PkgConfig::Dconf PkgConfig::LibZip)
        if(TARGET ${peer})
            target_link_libraries(tevtools_benchmarks PRIVATE ${peer})
        endif()
    endforeach()
    target_compile_definitions(tevtools_benchmarks PRIVATE TEVTOOLS_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
    # What starts is a program of its own.
    foreach(program IN ITEMS Empty Library)
        string(TOUPPER ${program} macro)
        add_executable(tevtools_start_${program} benchmarks/start/${program}.cpp)
        tevtools_configure(tevtools_start_${program})
        target_compile_definitions(tevtools_benchmarks PRIVATE
            TEVTOOLS_START_${macro}="$<TARGET_FILE:tevtools_start_${program}>")
        add_dependencies(tevtools_benchmarks tevtools_start_${program})
    endforeach()
    target_link_libraries(tevtools_start_Library PRIVATE TevTools)
    if(TARGET tev)
        target_compile_definitions(tevtools_benchmarks PRIVATE TEVTOOLS_TEV="$<TARGET_FILE:tev>")
        add_dependencies(tevtools_benchmarks tev)
    endif()
    if(TARGET Boost::serialization)
        target_link_libraries(tevtools_benchmarks PRIVATE Boost::serialization)
        target_compile_definitions(tevtools_benchmarks PRIVATE TEVTOOLS_BENCH_BOOST)
    endif()
endif()
