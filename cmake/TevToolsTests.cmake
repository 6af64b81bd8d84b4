# Tests: the unit tests, the plug-in tests, the public headers each by itself, the examples, the installed package, and
# the checks of the source tree.

find_package(GTest REQUIRED)
find_package(Python3 COMPONENTS Interpreter REQUIRED)
include(GoogleTest)

# One variable only: gtest_discover_tests takes a list apart.
set(test_environment "")
if(TEVTOOLS_SANITIZE MATCHES "address")
    set(test_environment
        "ASAN_OPTIONS=allocator_may_return_null=1:detect_stack_use_after_return=1:strict_string_checks=1")
elseif(TEVTOOLS_SANITIZE MATCHES "thread")
    set(test_environment
        "TSAN_OPTIONS=allocator_may_return_null=1:die_after_fork=0:suppressions=${PROJECT_SOURCE_DIR}/cmake/tsan-suppressions.txt")
endif()

# Unit tests link the library's objects, to test hidden symbols too.
file(GLOB_RECURSE test_sources CONFIGURE_DEPENDS tests/*Test.cpp tests/support/*.cpp)
list(FILTER test_sources EXCLUDE REGEX "/tests/(plugin|install|qt)/")
list(FILTER test_sources INCLUDE REGEX "${TEVTOOLS_TEST_SOURCES}|/tests/support/")
# Under the thread sanitizer only tests with Thread in their names are run.
if(TEVTOOLS_SANITIZE MATCHES "thread")
    foreach(source IN LISTS test_sources)
        file(STRINGS "${source}" thread_tests REGEX "^(TYPED_)?TEST(_F|_P)?\\(.*Thread" LIMIT_COUNT 1)
        if(NOT thread_tests AND NOT source MATCHES "/tests/support/")
            list(REMOVE_ITEM test_sources "${source}")
        endif()
    endforeach()
endif()
if(NOT TARGET tev)
    list(FILTER test_sources EXCLUDE REGEX "/tests/tools/")
endif()
if(test_sources)
    add_executable(tevtools_tests ${test_sources})
    tevtools_configure(tevtools_tests)
    tevtools_unify_groups(tevtools_tests 10)
    # Chooses what the library's headers check, so it must be the first to include them.
    set_source_files_properties(tests/objects/ThreadUseTest.cpp PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
    set_source_files_properties(tests/services/FormatterTest.cpp PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON
        INCLUDE_DIRECTORIES "${PROJECT_SOURCE_DIR}/tests/support/standard")
    target_link_libraries(tevtools_tests PRIVATE tevtools_objects GTest::gmock GTest::gtest_main)
    # GoogleTest's typed suites omit the last argument of a macro, which clang reports before C++20.
    target_compile_options(tevtools_tests PRIVATE
        $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>)
    # Read once instead of by each source: a third of the time that a test takes to compile.
    target_precompile_headers(tevtools_tests PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/Testing.h")
    # The library is tested as it is delivered; the tests themselves need not take several times as long to compile.
    target_compile_options(tevtools_tests PRIVATE $<$<CONFIG:Release>:-O1>)
    # The tests let allocations fail; a sanitizer's own functions cannot be replaced, so calls to them are redirected.
    if(TEVTOOLS_SANITIZE)
        target_compile_options(tevtools_tests PRIVATE -O0)
        target_compile_definitions(tevtools_tests PRIVATE TEVTOOLS_WRAPPED_ALLOCATIONS)
        foreach(function IN ITEMS malloc calloc realloc _Znwm _Znam _ZnwmRKSt9nothrow_t _ZnwmSt11align_val_t
                _ZnwmSt11align_val_tRKSt9nothrow_t)
            target_link_options(tevtools_tests PRIVATE "LINKER:--wrap=${function}")
        endforeach()
    endif()
    # A program that crashes.
    file(GLOB crash_ways_sources CONFIGURE_DEPENDS tests/crash/program/*.cpp)
    add_executable(tevtools_crash_ways ${crash_ways_sources})
    tevtools_configure(tevtools_crash_ways)
    target_link_libraries(tevtools_crash_ways PRIVATE TevTools)
    target_compile_options(tevtools_crash_ways PRIVATE -O1 -fno-builtin-malloc -fno-builtin-free -fstack-protector-strong)
    add_dependencies(tevtools_tests tevtools_crash_ways)
    # One source knows where things lie: the others are compiled alike wherever that is.
    set(tool "")
    if(TARGET tev)
        set(tool "$<TARGET_FILE:tev>")
        add_dependencies(tevtools_tests tev)
    endif()
    set_source_files_properties(tests/support/Places.cpp PROPERTIES
        COMPILE_DEFINITIONS "TEVTOOLS_SOURCE_DIR=\"${PROJECT_SOURCE_DIR}\";TEVTOOLS_TEV=\"${tool}\";\
TEVTOOLS_CRASH_WAYS=\"$<TARGET_FILE:tevtools_crash_ways>\""
        SKIP_PRECOMPILE_HEADERS ON)
    if(NOT TEVTOOLS_SANITIZE MATCHES "address")
        gtest_discover_tests(tevtools_tests
            DISCOVERY_TIMEOUT 60
            PROPERTIES TIMEOUT 300 ENVIRONMENT "${test_environment}")
        if(NOT TEVTOOLS_SANITIZE AND TEVTOOLS_TEST_SOURCES STREQUAL ".")
            add_test(NAME surroundings.skipped_by_sanitizers COMMAND Python3::Interpreter
                "${PROJECT_SOURCE_DIR}/tests/support/run-unsanitized" $<TARGET_FILE:tevtools_tests>)
            set_tests_properties(surroundings.skipped_by_sanitizers PROPERTIES TIMEOUT 900 COST 800)
        endif()
    else()
        # To start takes as long as a test there. So all run in a few processes, in another order, in a far time zone and
        # without a locale: what depends on these is found here, what depends on other tests in builds without sanitizer.
        # The order is the same each time, so that the result depends on the change only; --gtest_random_seed finds other
        # ones.
        foreach(shard RANGE 7)
            set(name surroundings.far_time_zone_and_c_locale_${shard})
            add_test(NAME ${name} COMMAND tevtools_tests --gtest_shuffle --gtest_random_seed=1 --gtest_brief=1)
            set_tests_properties(${name} PROPERTIES TIMEOUT 900 COST 1000 ENVIRONMENT # the longest, so the first
                "GTEST_TOTAL_SHARDS=8;GTEST_SHARD_INDEX=${shard};TZ=Pacific/Chatham;LC_ALL=C;LANG=C;${test_environment}")
        endforeach()
    endif()
endif()

# Trials of the writers with faults at their system calls and allocations: a sample here, all by scripts/trials --long.
if(TARGET tev AND NOT TEVTOOLS_SANITIZE AND CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    file(GLOB trial_sources CONFIGURE_DEPENDS tests/trials/*.cpp)
    add_executable(tevtools_trials ${trial_sources} tests/support/Places.cpp)
    tevtools_configure(tevtools_trials)
    target_link_libraries(tevtools_trials PRIVATE TevTools)
    add_dependencies(tevtools_trials tev)
    foreach(writer IN ITEMS preferences CZip CMiniZip registry tev log)
        add_test(NAME trials.${writer} COMMAND tevtools_trials --sample 4 --only ${writer})
        set_tests_properties(trials.${writer} PROPERTIES TIMEOUT 300 SKIP_RETURN_CODE 77 COST 100)
    endforeach()
endif()

# What the tool prints for other programs, and for shells.
if(TARGET tev AND UNIX)
    add_test(NAME tool.json COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/tests/tools/check-json"
        "$<TARGET_FILE:tev>" "${PROJECT_SOURCE_DIR}")
    add_test(NAME tool.completion COMMAND "${PROJECT_SOURCE_DIR}/tests/tools/check-completion" "$<TARGET_FILE:tev>")
    set_tests_properties(tool.json tool.completion PROPERTIES TIMEOUT 300 ENVIRONMENT "${test_environment}")
endif()

# Plug-ins are loaded at run time by a program that uses the real shared library.
file(GLOB plugin_sources CONFIGURE_DEPENDS tests/plugin/*Plugin.cpp)
file(GLOB plugin_test_sources CONFIGURE_DEPENDS tests/plugin/*Test.cpp)
if(plugin_test_sources)
    set(plugin_dir "${PROJECT_BINARY_DIR}/plugins")
    add_executable(tevtools_plugin_tests ${plugin_test_sources})
    tevtools_configure(tevtools_plugin_tests)
    target_link_libraries(tevtools_plugin_tests PRIVATE TevTools GTest::gtest_main ${CMAKE_DL_LIBS})
    target_compile_definitions(tevtools_plugin_tests PRIVATE TEVTOOLS_PLUGIN_DIR="${plugin_dir}")
    foreach(source IN LISTS plugin_sources)
        get_filename_component(name "${source}" NAME_WE)
        add_library(${name} MODULE "${source}")
        tevtools_configure(${name})
        target_link_libraries(${name} PRIVATE TevTools)
        set_target_properties(${name} PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY "${plugin_dir}")
        # A unique symbol would keep the plug-in in memory after it is closed.
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            target_compile_options(${name} PRIVATE -fno-gnu-unique)
        endif()
        add_dependencies(tevtools_plugin_tests ${name})
    endforeach()
    gtest_discover_tests(tevtools_plugin_tests
        DISCOVERY_TIMEOUT 60
        PROPERTIES TIMEOUT 300 ENVIRONMENT "${test_environment}")
endif()

# Each public header by itself, where no source of the library begins with it, which proves the same; all together, each
# twice, once more in the next language version. Compiled only, so without sanitizers.
if(NOT TEVTOOLS_SANITIZE)
    set(first_headers "")
    if(NOT TEVTOOLS_UNITY)
        foreach(source IN LISTS tevtools_sources)
            file(STRINGS "${source}" first_header REGEX "^#include " LIMIT_COUNT 1)
            list(APPEND first_headers "${first_header}")
        endforeach()
    endif()
    set(all_headers "${PROJECT_BINARY_DIR}/headers/all.cpp")
    set(header_sources "${all_headers}")
    set(header_lines "")
    foreach(header IN LISTS tevtools_public_headers tevtools_standalone_headers ITEMS TevTools.h)
        string(APPEND header_lines "#include \"${header}\"\n")
        if(NOT "#include \"${header}\"" IN_LIST first_headers)
            string(REPLACE "/" "_" source "${header}")
            set(source "${PROJECT_BINARY_DIR}/headers/${source}.cpp")
            file(CONFIGURE OUTPUT "${source}" CONTENT "#include \"${header}\"\n")
            list(APPEND header_sources "${source}")
        endif()
    endforeach()
    file(CONFIGURE OUTPUT "${all_headers}" CONTENT "${header_lines}${header_lines}")
    add_library(tevtools_headers_cxx17 OBJECT ${header_sources})
    add_library(tevtools_headers_cxx20 OBJECT "${all_headers}")
    foreach(standard IN ITEMS 17 20)
        set(headers tevtools_headers_cxx${standard})
        tevtools_configure(${headers})
        target_compile_options(${headers} PRIVATE -O0)
        set_target_properties(${headers} PROPERTIES CXX_STANDARD ${standard})
        target_include_directories(${headers} PRIVATE "${PROJECT_SOURCE_DIR}")
    endforeach()
endif()

# Lines that must compile and lines that must not, by each compiler that there is.
if(NOT TEVTOOLS_SANITIZE)
    find_program(TEVTOOLS_OTHER_COMPILER NAMES clang++ g++)
    set(compilers "${CMAKE_CXX_COMPILER}" ${TEVTOOLS_OTHER_COMPILER})
    list(REMOVE_DUPLICATES compilers)
    add_test(NAME compile.lines COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/tests/compile/check-lines" ${compilers})
    set_tests_properties(compile.lines PROPERTIES TIMEOUT 600 COST 900)
endif()

# Values as gdb and lldb show them. The program is described as far as compilers do it by themselves; lldb needs more of
# one by clang.
if(NOT TEVTOOLS_SANITIZE AND UNIX AND NOT APPLE)
    add_executable(tevtools_debugged tests/debugger/Values.cpp)
    tevtools_configure(tevtools_debugged)
    target_link_libraries(tevtools_debugged PRIVATE TevTools)
    target_compile_options(tevtools_debugged PRIVATE -g -O0 $<$<CXX_COMPILER_ID:Clang>:-fstandalone-debug>)
    if(TARGET tevtools_tests)
        add_dependencies(tevtools_tests tevtools_debugged)
    endif()
    add_test(NAME debuggers COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/tests/debugger/check-debuggers"
        "$<TARGET_FILE:tevtools_debugged>" "$<TARGET_FILE_DIR:TevTools>")
    set_tests_properties(debuggers PROPERTIES TIMEOUT 300 SKIP_RETURN_CODE 77)
endif()

# Examples get the folder of the sample inputs as argument and run in a folder of their own, with a registry of their
# own.
add_library(tevtools_tutorial_model OBJECT examples/tutorial/Model.cpp)
tevtools_configure(tevtools_tutorial_model)
target_link_libraries(tevtools_tutorial_model PRIVATE TevTools)
if(TEVTOOLS_SANITIZE) # where the library's headers take longest; other builds show what each example includes itself
    target_precompile_headers(tevtools_tutorial_model PRIVATE "${PROJECT_SOURCE_DIR}/TevTools.h")
endif()
file(GLOB example_sources CONFIGURE_DEPENDS examples/*.cpp examples/tutorial/step*.cpp)
foreach(source IN LISTS example_sources)
    get_filename_component(name "${source}" NAME_WE)
    set(run_dir "${PROJECT_BINARY_DIR}/examples/${name}")
    file(MAKE_DIRECTORY "${run_dir}")
    add_executable(example_${name} "${source}")
    tevtools_configure(example_${name})
    target_link_libraries(example_${name} PRIVATE TevTools)
    if(TEVTOOLS_SANITIZE)
        target_precompile_headers(example_${name} REUSE_FROM tevtools_tutorial_model)
    endif()
    if(source MATCHES "/tutorial/")
        target_link_libraries(example_${name} PRIVATE tevtools_tutorial_model)
    endif()
    add_test(NAME example.${name} COMMAND example_${name} "${PROJECT_SOURCE_DIR}/examples/data"
        WORKING_DIRECTORY "${run_dir}")
    # Their data is kept there and nowhere else.
    set_tests_properties(example.${name} PROPERTIES TIMEOUT 60 ENVIRONMENT
        "TEVTOOLS_REGISTRY=${run_dir}/registry.db;TEVTOOLS_MACHINE_REGISTRY=${run_dir}/none.db;\
TEVTOOLS_USER_DATA=${run_dir}/user;TEVTOOLS_COMMON_DATA=${run_dir}/common;${test_environment}")
endforeach()

# A separate project built with an installed copy. A sanitized library needs a sanitized program.
if(NOT TEVTOOLS_SANITIZE AND PROJECT_IS_TOP_LEVEL)
    add_test(NAME install.package COMMAND "${CMAKE_COMMAND}"
        -D "BUILD_DIR=${PROJECT_BINARY_DIR}" -D "SOURCE_DIR=${PROJECT_SOURCE_DIR}" -D "VERSION=${PROJECT_VERSION}"
        -D "LIBDIR=${CMAKE_INSTALL_LIBDIR}" -D "BINDIR=${CMAKE_INSTALL_BINDIR}" -D "TOOL=$<TARGET_EXISTS:tev>"
        -D "STATIC=$<TARGET_EXISTS:TevToolsStatic>"
        -D "GENERATOR=${CMAKE_GENERATOR}" -D "COMPILER=${CMAKE_CXX_COMPILER}"
        -P "${PROJECT_SOURCE_DIR}/tests/install/InstallTest.cmake")
    set_tests_properties(install.package PROPERTIES TIMEOUT 300)
    # The same with packages of Debian, which scripts/package makes with what packages have besides.
    find_program(TEVTOOLS_DPKG_SHLIBDEPS dpkg-shlibdeps)
    if(TEVTOOLS_DPKG_SHLIBDEPS AND TARGET TevToolsStatic AND TARGET tev)
        add_test(NAME install.debian COMMAND "${PROJECT_SOURCE_DIR}/tests/install/check-packages" --make "${PROJECT_BINARY_DIR}")
        set_tests_properties(install.debian PROPERTIES TIMEOUT 600 SKIP_RETURN_CODE 77)
    endif()
endif()

# The source tree: includes, public headers, the code blocks of the documents.
foreach(check IN ITEMS includes docs)
    add_test(NAME style.${check} COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/scripts/check-${check}")
endforeach()

# What the library exports. The compiler and its options decide which inline functions and virtual tables are exported too.
if(TEVTOOLS_UNITY AND NOT TEVTOOLS_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE STREQUAL "Release")
    add_test(NAME style.exports COMMAND Python3::Interpreter "${PROJECT_SOURCE_DIR}/scripts/check-exports"
        "$<TARGET_FILE:TevTools>")
endif()
