include(GoogleTest)

# Tests are run once and compiled often: what optimises them costs more than it brings.
function(hostlink_test_options name)
    target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O0>)
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
endfunction()

# hostlink_test(NAME SOURCES... LIBS...): a Google Test executable of the host-link library or without Qt.
# hostlink_qt_test(...): the same with a QCoreApplication and moc.
function(hostlink_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    hostlink_test_options(${name})
    target_precompile_headers(${name} PRIVATE <gtest/gtest.h> <string> <vector>)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest_main)
    gtest_discover_tests(${name} PROPERTIES TIMEOUT 60 DISCOVERY_TIMEOUT 60)
endfunction()

function(hostlink_qt_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    hostlink_test_options(${name})
    target_precompile_headers(${name} REUSE_FROM qt_test_main)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} qt_test_main)
    gtest_discover_tests(${name} PROPERTIES TIMEOUT 60 DISCOVERY_TIMEOUT 60)
endfunction()
