# What makes a fault in memory harder to use. In release builds only: a debug build is to be stepped through, and the
# sanitizers find more than this.
option(HOSTLINK_HARDENING "Harden release builds; off to measure what that costs" ON)
set(HOSTLINK_HARDENED OFF)
if(HOSTLINK_HARDENING AND CMAKE_BUILD_TYPE STREQUAL Release AND NOT HOSTLINK_SANITIZE)
    set(HOSTLINK_HARDENED ON)
    include(CheckPIESupported)
    check_pie_supported()
    add_compile_options(-fstack-protector-strong -fstack-clash-protection)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
        add_compile_options(-fcf-protection=full)
    elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL aarch64)
        add_compile_options(-mbranch-protection=standard)
    endif()
    add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
endif()

# Checks of lengths that the compiler knows, and of the standard containers' indices, for the targets of this folder
# and those below. Not for tests, which are not optimised: the former need that.
macro(hostlink_fortify)
    if(HOSTLINK_HARDENED)
        add_compile_definitions(_FORTIFY_SOURCE=3 _GLIBCXX_ASSERTIONS)
    endif()
endmacro()

# hostlink_check_hardening(TARGETS...): a test that the built files are what the flags above are to make of them.
function(hostlink_check_hardening)
    if(NOT HOSTLINK_HARDENED)
        return()
    endif()
    list(TRANSFORM ARGN REPLACE ".+" "$<TARGET_FILE:\\0>" OUTPUT_VARIABLE files)
    add_test(NAME Hardening.OfTheBuiltFiles COMMAND ${CMAKE_SOURCE_DIR}/scripts/check-hardening ${files})
    set_tests_properties(Hardening.OfTheBuiltFiles PROPERTIES
        ENVIRONMENT "READELF=${CMAKE_READELF};OBJDUMP=${CMAKE_OBJDUMP}" TIMEOUT 60)
endfunction()
