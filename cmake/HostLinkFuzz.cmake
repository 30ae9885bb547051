add_custom_target(fuzzers)

# add_hostlink_fuzzer(NAME [LIBS...]): a libFuzzer executable of NAME.cpp with the host-link library and others. Its
# seeds lie in corpus/NAME and the words of its inputs in dict/NAME, from where scripts/fuzz takes them.
function(add_hostlink_fuzzer name)
    cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
    add_executable(${name} ${name}.cpp)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzzers)
    target_link_libraries(${name} PRIVATE hostlink ${ARG_LIBS})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    add_dependencies(fuzzers ${name})
endfunction()
