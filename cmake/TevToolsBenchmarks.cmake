# One executable with every benchmark and the libraries that they are compared with.

find_package(benchmark REQUIRED)
find_package(fmt REQUIRED)
find_package(ICU COMPONENTS uc i18n REQUIRED)

file(GLOB benchmark_sources CONFIGURE_DEPENDS benchmarks/*.cpp)
if(benchmark_sources)
    add_executable(tevtools_benchmarks ${benchmark_sources})
    tevtools_configure(tevtools_benchmarks)
    target_link_libraries(tevtools_benchmarks PRIVATE
        TevTools benchmark::benchmark benchmark::benchmark_main fmt::fmt ICU::uc ICU::i18n)
    target_compile_definitions(tevtools_benchmarks PRIVATE TEVTOOLS_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
endif()
