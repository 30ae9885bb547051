include(GoogleTest)

# Tests are run once and compiled often: what optimises them costs more than it brings.
function(hostlink_test_options name)
    if(CMAKE_BUILD_TYPE STREQUAL Release OR HOSTLINK_SANITIZE)
        target_compile_options(${name} PRIVATE -O0)
    endif()
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
endfunction()

# Each test by itself, or, where an emulator runs them and starts slowly, all of an executable at once. Those whose
# names match `not_emulated` (with * for any characters) have that label there, which the preset leaves out; those that
# match `slow_emulated` are NAME.slow there.
function(hostlink_add_tests name not_emulated slow_emulated)
    if(NOT CMAKE_CROSSCOMPILING)
        gtest_discover_tests(${name} PROPERTIES TIMEOUT 120 DISCOVERY_TIMEOUT 60 ${ARGN})
        return()
    endif()
    string(REPLACE ";" ":" filter "${not_emulated}")
    string(REPLACE ";" ":" slow "${slow_emulated}")
    if(NOT filter STREQUAL "*")
        add_test(NAME ${name} COMMAND ${name} --gtest_filter=-${filter}:${slow})
        set_tests_properties(${name} PROPERTIES TIMEOUT 600)
    endif()
    if(slow)
        add_test(NAME ${name}.slow COMMAND ${name} --gtest_filter=${slow})
        set_tests_properties(${name}.slow PROPERTIES TIMEOUT 1800)
    endif()
    if(filter)
        add_test(NAME ${name}.not-emulated COMMAND ${name} --gtest_filter=${filter})
        set_tests_properties(${name}.not-emulated PROPERTIES LABELS not-emulated)
    endif()
endfunction()

# hostlink_test(NAME SOURCES... LIBS... [NOT_EMULATED FILTERS...] [SLOW_EMULATED FILTERS...]): a Google Test executable of
# the host-link library or without Qt.
# hostlink_qt_test(...): the same with a QCoreApplication and moc.
function(hostlink_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;NOT_EMULATED;SLOW_EMULATED" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    hostlink_test_options(${name})
    target_precompile_headers(${name} PRIVATE <gtest/gtest.h> <string> <vector>)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest_main)
    hostlink_add_tests(${name} "${ARG_NOT_EMULATED}" "${ARG_SLOW_EMULATED}")
endfunction()

function(hostlink_qt_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;NOT_EMULATED;SLOW_EMULATED" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    hostlink_test_options(${name})
    target_precompile_headers(${name} REUSE_FROM qt_test_main)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} qt_test_main)
    hostlink_add_tests(${name} "${ARG_NOT_EMULATED}" "${ARG_SLOW_EMULATED}")
endfunction()
