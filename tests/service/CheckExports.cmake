# Compares what the shared library LIBRARY exports with the interface, by rule: of all that the same
# sources define (the static library ARCHIVE), the factories, the members of the device core and of
# the crypto device and the CBOR helpers are exported, and nothing else is.

function(defined_symbols file output)
    execute_process(COMMAND ${NM} --defined-only --extern-only --format=posix ${ARGN} ${file}
                    OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL "[^\n]+ [A-Z] [^\n]*" lines "${listing}")
    list(TRANSFORM lines REPLACE " .*" "")
    list(REMOVE_DUPLICATES lines)
    set(${output} ${lines} PARENT_SCOPE)
endfunction()

# As the compilers mangle them: a factory; a member function, constructor or destructor; a helper.
set(factory "^_ZN9keymaster4V4_[01][0-9]+Create(Sb)?KeymasterDeviceEv$")
set(member "^_ZN15keymasterdevice(18KeymasterHalDevice|21KeymasterCryptoDevice)([0-9]|[CD][0-9])")
set(helper "^C[RW](Get[A-Za-z0-9]*|_(ARRAY|MAP)(_LABEL)?_ENTER)$")

defined_symbols(${ARCHIVE} expected)
list(FILTER expected INCLUDE REGEX "${factory}|${member}|${helper}")
defined_symbols(${LIBRARY} exported --dynamic)

foreach(rule factory:4 member:60 helper:29)
    string(REPLACE ":" ";" rule ${rule})
    list(GET rule 0 name)
    list(GET rule 1 count)
    set(matching ${exported})
    list(FILTER matching INCLUDE REGEX "${${name}}")
    list(LENGTH matching found)
    if(found LESS count)
        message(SEND_ERROR "only ${found} of at least ${count} exports are a ${name}")
    endif()
endforeach()

set(missing ${expected})
list(REMOVE_ITEM missing ${exported})
if(missing)
    message(SEND_ERROR "not exported: ${missing}")
endif()
list(REMOVE_ITEM exported ${expected})
if(exported)
    message(SEND_ERROR "exported, but no part of the interface: ${exported}")
endif()
