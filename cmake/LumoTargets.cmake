# What every target of ours shares.
#   lumo_library(name [SHARED|STATIC|OBJECT] sources...)   with our warnings and sanitizers
#   lumo_executable(name sources...)
#   lumo_tool(name)                                        an executable for users, in bin/
#   lumo_test(name sources... LIBS libraries...)           an executable that CTest runs
#   lumo_precompile(name headers...)                       headers to be parsed once for it
#   lumo_build_quickly(name)                               not optimised in preset dev

find_package(Threads REQUIRED)

# What the tests need; the default target builds the tools alone.
add_custom_target(all_tests)

add_library(lumo_flags INTERFACE)
target_compile_options(lumo_flags INTERFACE
    -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wformat=2 -Wnon-virtual-dtor
    -Wold-style-cast -Wcast-align -Wcast-qual -Woverloaded-virtual -Wmissing-declarations -Wvla
    -Wundef
    $<$<BOOL:${LUMO_WERROR}>:-Werror>)
if(LUMO_COVERAGE)
    add_compile_options(--coverage -fprofile-abs-path -fprofile-update=atomic)
    add_link_options(--coverage)
endif()
if(LUMO_SANITIZE)
    add_compile_options(-fsanitize=${LUMO_SANITIZE} -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    # Without this g++ takes every 32-bit value for one of any enumeration, and its check of them
    # does nothing.
    add_compile_options($<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fstrict-enums>)
    add_link_options(-fsanitize=${LUMO_SANITIZE})
endif()

# Programs of another processor. Tests and scripts start programs by their path, so in the place of
# each stands a script that has the program beside it emulated.
if(LUMO_EMULATOR)
    list(JOIN LUMO_EMULATOR " " emulator)
    file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/emulated @ONLY
         CONTENT "#!/bin/sh\nexec @emulator@ -0 \"$0\" \"$0.elf\" \"$@\"\n")
    file(CHMOD ${CMAKE_BINARY_DIR}/emulated
         PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endif()

function(lumo_library name)
    add_library(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE lumo_flags)
endfunction()

function(lumo_executable name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE lumo_flags)
    if(LUMO_EMULATOR)
        add_custom_command(TARGET ${name} POST_BUILD VERBATIM
            COMMAND ${CMAKE_COMMAND} -E rename $<TARGET_FILE:${name}> $<TARGET_FILE:${name}>.elf
            COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_BINARY_DIR}/emulated $<TARGET_FILE:${name}>)
    endif()
endfunction()

function(lumo_tool name)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
endfunction()

# Only with g++: its sanitizer build gains too, and clang's, which has none, finds the includes that a
# file lacks. Without the preprocessor flag a compiler cache could not look inside.
function(lumo_precompile name)
    if(LUMO_PCH)
        target_precompile_headers(${name} PRIVATE ${ARGN})
        target_compile_options(${name} PRIVATE -fpch-preprocess)
    endif()
endfunction()

# For code whose speed nobody feels: optimising it is most of what compiling it costs. Of the presets
# that ask for debug information and optimisation at once, bench measures and keeps the latter.
function(lumo_build_quickly name)
    if(NOT (LUMO_BENCH OR LUMO_INSTALLED))
        target_compile_options(${name} PRIVATE $<$<CONFIG:RelWithDebInfo>:-O0>)
    endif()
endfunction()

# Decoded memory is allocated with array new and released with free, as the interfaces say; both are
# one heap on the platform. Nothing else is switched off.
function(lumo_test_environment test)
    set(patience 900)
    if(LUMO_EMULATOR)
        set(patience 3000)
    endif()
    set_tests_properties(${test} PROPERTIES
        ENVIRONMENT "ASAN_OPTIONS=alloc_dealloc_mismatch=0:detect_leaks=1;UBSAN_OPTIONS=print_stacktrace=1"
        TIMEOUT ${patience})
endfunction()

function(lumo_test name)
    cmake_parse_arguments(arg "" "" "LIBS" ${ARGN})
    lumo_executable(${name} ${arg_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE ${arg_LIBS} gmock gtest_main gtest Threads::Threads)
    lumo_build_quickly(${name})
    if(LUMO_PCH)
        target_precompile_headers(${name} REUSE_FROM lumo_test_headers)
        target_compile_options(${name} PRIVATE -fpch-preprocess)
    endif()
    add_test(NAME ${name} COMMAND ${name})
    add_dependencies(all_tests ${name})
    lumo_test_environment(${name})
endfunction()
