# Configures against prefixes that hold an older QCBOR, a newer one and none, and compares what
# CMake says with what it should. SOURCE, WORK and CXX are given. The older one is made of the
# bundled sources.
file(REMOVE_RECURSE ${WORK})
file(COPY ${SOURCE}/host/qcbor/include/ DESTINATION ${WORK}/older/include/qcbor)
file(WRITE ${WORK}/newer/include/qcbor/qcbor.h
     "typedef struct { int uError; } QCBOREncodeContext;\n"
     "void QCBOREncode_OpenMapInMap(QCBOREncodeContext *, const char *);\n")
file(MAKE_DIRECTORY ${WORK}/older/lib ${WORK}/newer/lib ${WORK}/none)
execute_process(
    COMMAND ${CXX} -std=c++17 -shared -fPIC -I${SOURCE}/host/qcbor/include
            ${SOURCE}/host/qcbor/QcborEncode.cpp ${SOURCE}/host/qcbor/QcborDecode.cpp -lcbor
            -o ${WORK}/older/lib/libqcbor.so
    COMMAND_ERROR_IS_FATAL ANY)
file(COPY ${WORK}/older/lib/libqcbor.so DESTINATION ${WORK}/newer/lib)

function(expect choice prefix pattern)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${WORK}/build-${choice}-${prefix}
                -DSOURCE=${SOURCE} -DCMAKE_CXX_COMPILER=${CXX} -DLUMO_QCBOR=${choice}
                -DCMAKE_PREFIX_PATH=${WORK}/${prefix} -DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF
        OUTPUT_VARIABLE said ERROR_VARIABLE said)
    # CMake breaks the lines of its errors.
    string(REGEX REPLACE "[ \n]+" " " said "${said}")
    if(NOT said MATCHES "${pattern}")
        message(SEND_ERROR "LUMO_QCBOR=${choice} with ${prefix}: no '${pattern}' in\n${said}")
    endif()
endfunction()

expect(system older "QCBOR: the installed [^ ]*/older/lib/libqcbor.so")
expect(auto older "QCBOR: the installed [^ ]*/older/lib/libqcbor.so")
expect(bundled older "QCBOR: bundled")
expect(system newer "No installed QCBOR .* has another interface")
expect(auto newer "QCBOR: bundled")
expect(system none "No installed QCBOR .*no header qcbor.h or no library qcbor")
expect(auto none "QCBOR: bundled")
expect(other none "it must be system, bundled or auto")
