# The desktop, by Qt 6 Widgets: the library TevToolsQt, the programs of qt/, and their tests. The core needs nothing of it.

find_package(Qt6 6.4 REQUIRED COMPONENTS Widgets)

# Qt's headers are not held to our warnings; its classes are described by moc.
function(tevtools_configure_qt target)
    tevtools_configure(${target})
    tevtools_unify_rooms(${target})
    set_target_properties(${target} PROPERTIES AUTOMOC ON)
    if(TEVTOOLS_SANITIZE) # which takes half the time to compile
        target_compile_options(${target} PRIVATE -O0)
    endif()
    target_compile_definitions(${target} PRIVATE QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS
        QT_DISABLE_DEPRECATED_BEFORE=0x060400)
    # clang takes friends of Qt's classes, begin and end, for variables that names of ours hide.
    target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:Clang>:-Wno-shadow>)
endfunction()

file(GLOB qt_sources CONFIGURE_DEPENDS qt/toolkit/*.cpp qt/toolkit/*.h)
add_library(TevToolsQt SHARED ${qt_sources})
# A header of Qt's, read before, would shadow names of CXFile.
set_source_files_properties(qt/toolkit/ReportPreview.cpp PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
add_library(TevTools::Qt ALIAS TevToolsQt)
tevtools_configure_qt(TevToolsQt)
target_compile_definitions(TevToolsQt PRIVATE TEVTOOLS_QT_BUILDING)
target_link_libraries(TevToolsQt PUBLIC TevTools Qt6::Core PRIVATE Qt6::Widgets)
set_target_properties(TevToolsQt PROPERTIES
    EXPORT_NAME Qt
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
tevtools_split_debug_information(TevToolsQt)

# A program of a folder of qt/. All but its main.cpp is a library, which its tests are linked with, too.
function(tevtools_qt_program program folder)
    file(GLOB sources CONFIGURE_DEPENDS qt/${folder}/*.cpp qt/${folder}/*.h)
    list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
    add_library(tevtools_qt_${folder} STATIC ${sources})
    tevtools_configure_qt(tevtools_qt_${folder})
    target_link_libraries(tevtools_qt_${folder} PUBLIC TevToolsQt Qt6::Widgets)
    add_executable(${program} "${PROJECT_SOURCE_DIR}/qt/${folder}/main.cpp")
    tevtools_configure_qt(${program})
    target_link_libraries(${program} PRIVATE tevtools_qt_${folder})
    tevtools_split_debug_information(${program})
endfunction()

foreach(program IN ITEMS log settings)
    if(EXISTS "${PROJECT_SOURCE_DIR}/qt/${program}/main.cpp")
        tevtools_qt_program(tev-${program} ${program})
    endif()
endforeach()
if(EXISTS "${PROJECT_SOURCE_DIR}/qt/crash/main.cpp")
    tevtools_qt_program(tev-crash-dialog crash)
endif()

if(TEVTOOLS_INSTALL)
    include(TevToolsQtInstall)
endif()

include(TevToolsHost)

# Tests drive real windows on a display of their own, one program for each folder of tests/qt.
if(TEVTOOLS_TESTS)
    find_package(Qt6 6.4 REQUIRED COMPONENTS Test)
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(xcb REQUIRED IMPORTED_TARGET xcb)
    file(GLOB qt_test_folders CONFIGURE_DEPENDS tests/qt/*)
    foreach(path IN LISTS qt_test_folders)
        get_filename_component(folder "${path}" NAME)
        file(GLOB sources CONFIGURE_DEPENDS ${path}/*.cpp ${path}/*.h)
        if(folder STREQUAL "support" OR NOT sources OR NOT IS_DIRECTORY "${path}")
            continue()
        endif()
        set(tests tevtools_qt_${folder}_tests)
        add_executable(${tests} ${sources} "${PROJECT_SOURCE_DIR}/tests/qt/support/main.cpp")
        tevtools_configure_qt(${tests})
        target_link_libraries(${tests} PRIVATE TevToolsQt Qt6::Widgets Qt6::Test GTest::gmock)
        if(TARGET tevtools_qt_${folder})
            target_link_libraries(${tests} PRIVATE tevtools_qt_${folder})
        endif()
        foreach(program IN ITEMS tev-${folder} tev-${folder}-dialog ${folder}) # which the tests also run
            if(TARGET ${program})
                add_dependencies(${tests} ${program})
            endif()
        endforeach()
        if(folder STREQUAL "crash") # looks at the windows of the program
            target_link_libraries(${tests} PRIVATE PkgConfig::xcb)
        endif()
        target_compile_definitions(${tests} PRIVATE TEVTOOLS_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
        target_compile_options(${tests} PRIVATE $<$<CONFIG:Release>:-O1>)
        list(APPEND qt_tests ${tests})
        add_test(NAME desktop.${folder} COMMAND "${PROJECT_SOURCE_DIR}/tests/qt/support/on-display" $<TARGET_FILE:${tests}>)
        set(test_names desktop.${folder})
        if(folder MATCHES "^(toolkit|host)$") # its windows also on a display of twice the density
            set(tests_of_toolkit "*")
            set(tests_of_host "*FitIn*")
            list(APPEND test_names desktop.${folder}.scaled)
            add_test(NAME desktop.${folder}.scaled COMMAND "${PROJECT_SOURCE_DIR}/tests/qt/support/on-display"
                env QT_SCALE_FACTOR=2 $<TARGET_FILE:${tests}> "--gtest_filter=${tests_of_${folder}}")
        endif()
        # Strict checks of strings complain of what the display's own libraries do.
        set_tests_properties(${test_names} PROPERTIES TIMEOUT 300 LABELS desktop
            ENVIRONMENT "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/qt/support/leaks-of-qt.txt;\
ASAN_OPTIONS=detect_stack_use_after_return=1")
    endforeach()
    # What makes the pictures of the documents.
    add_executable(tevtools_pictures EXCLUDE_FROM_ALL "${PROJECT_SOURCE_DIR}/qt/pictures/main.cpp")
    tevtools_configure_qt(tevtools_pictures)
    target_link_libraries(tevtools_pictures PRIVATE TevToolsQt Qt6::Widgets)
    add_test(NAME desktop.pictures COMMAND "${PROJECT_SOURCE_DIR}/scripts/pictures" --check)
    # A foreign project is built with what is installed.
    set(sanitizer_flags "")
    if(TEVTOOLS_SANITIZE)
        set(sanitizer_flags "-fsanitize=${TEVTOOLS_SANITIZE}")
    endif()
    add_test(NAME desktop.install COMMAND "${CMAKE_COMMAND}" "-DBUILD_DIR=${CMAKE_BINARY_DIR}"
        "-DSOURCE_DIR=${CMAKE_SOURCE_DIR}" "-DGENERATOR=${CMAKE_GENERATOR}" "-DCOMPILER=${CMAKE_CXX_COMPILER}"
        "-DFLAGS=${sanitizer_flags}"
        -P "${CMAKE_SOURCE_DIR}/tests/qt/support/InstallTest.cmake")
    set_tests_properties(desktop.pictures desktop.install PROPERTIES LABELS desktop TIMEOUT 300)
    add_custom_target(desktop DEPENDS ${qt_tests} tev-crash-dialog)
    if(TARGET TevToolsStatic) # belongs to what is installed
        add_dependencies(desktop TevToolsStatic)
    endif()
    foreach(program IN ITEMS tev-log tev-settings)
        if(TARGET ${program})
            add_dependencies(desktop ${program})
        endif()
    endforeach()
endif()
