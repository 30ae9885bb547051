include(GoogleTest)

# hostlink_test(NAME SOURCES... LIBS...): a Google Test executable of the host-link library or without Qt.
# hostlink_qt_test(...): the same with a QCoreApplication and moc.
function(hostlink_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest_main)
    gtest_discover_tests(${name} PROPERTIES TIMEOUT 60 DISCOVERY_TIMEOUT 60)
endfunction()

function(hostlink_qt_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES} ${CMAKE_SOURCE_DIR}/tests/support/QtTestMain.cpp)
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} Qt5::Core GTest::gtest)
    gtest_discover_tests(${name} PROPERTIES TIMEOUT 60 DISCOVERY_TIMEOUT 60)
endfunction()
