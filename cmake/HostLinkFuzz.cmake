# add_hostlink_fuzzer(NAME): a libFuzzer executable of NAME.cpp with the host-link library. Its seeds lie in
# corpus/NAME, from where scripts/fuzz takes them.
function(add_hostlink_fuzzer name)
    add_executable(${name} ${name}.cpp)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzzers)
    target_link_libraries(${name} PRIVATE hostlink)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
endfunction()
