# lumo_find_installed_qcbor(): looks for a QCBOR with the older call interface and sets, for its
# caller,
#   LUMO_QCBOR_USABLE     whether code written against that interface compiles and links
#   LUMO_QCBOR_FINDING    what was found, in words
#   LUMO_QCBOR_INCLUDES, LUMO_QCBOR_LIBRARY

include(CheckCXXSourceCompiles)

# The older headers have no guards of their own for C++. A newer QCBOR has neither the functions
# whose names end in _3 nor these signatures.
set(LUMO_QCBOR_PROBE [[
extern "C" {
#include <qcbor.h>
}
int main() {
    char bytes[64];
    size_t size = 0;
    QCBOREncodeContext out;
    QCBOREncode_Init(&out, bytes, sizeof(bytes));
    QCBOREncode_OpenMap_3(&out, nullptr, QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, 0);
    QCBOREncode_AddUInt64_3(&out, nullptr, 1, CBOR_TAG_NONE, 1);
    QCBOREncode_AddInt64_3(&out, nullptr, 2, CBOR_TAG_NONE, -1);
    QCBOREncode_AddSimple_3(&out, nullptr, 3, CBOR_TAG_NONE, CBOR_SIMPLEV_TRUE);
    QCBOREncode_AddBytes_3(&out, nullptr, 4, CBOR_TAG_NONE, UsefulBufC());
    QCBOREncode_OpenArray_3(&out, nullptr, 5, CBOR_TAG_NONE, 0);
    QCBOREncode_CloseArray(&out);
    out.uError = QCBOR_ERR_UNSUPPORTED;
    int result = QCBOREncode_Finish(&out, &size);
    QCBORDecodeContext in;
    QCBORItem item;
    UsefulBufC encoded = {bytes, size};
    QCBORDecode_Init(&in, encoded, QCBOR_DECODE_MODE_NORMAL);
    result |= QCBORDecode_GetNext(&in, &item);
    result |= QCBORDecode_Finish(&in);
    return result;
}
]])

function(lumo_find_installed_qcbor)
    find_path(LUMO_QCBOR_INCLUDE qcbor.h PATH_SUFFIXES qcbor)
    find_library(LUMO_QCBOR_LIBRARY qcbor)
    mark_as_advanced(LUMO_QCBOR_INCLUDE LUMO_QCBOR_LIBRARY)
    set(LUMO_QCBOR_USABLE FALSE PARENT_SCOPE)
    if(NOT LUMO_QCBOR_INCLUDE OR NOT LUMO_QCBOR_LIBRARY)
        set(LUMO_QCBOR_FINDING "no header qcbor.h or no library qcbor" PARENT_SCOPE)
        return()
    endif()

    # Headers in a folder of their own may name each other with or without it.
    set(includes ${LUMO_QCBOR_INCLUDE})
    get_filename_component(folder ${LUMO_QCBOR_INCLUDE} NAME)
    if(folder STREQUAL qcbor)
        get_filename_component(parent ${LUMO_QCBOR_INCLUDE} DIRECTORY)
        list(APPEND includes ${parent})
    endif()

    # The outcome is kept in the cache under a name that changes with what was found.
    string(MD5 place "${includes} ${LUMO_QCBOR_LIBRARY}")
    set(CMAKE_REQUIRED_INCLUDES ${includes})
    set(CMAKE_REQUIRED_LIBRARIES ${LUMO_QCBOR_LIBRARY})
    check_cxx_source_compiles("${LUMO_QCBOR_PROBE}" LUMO_QCBOR_COMPILES_${place})
    set(LUMO_QCBOR_USABLE ${LUMO_QCBOR_COMPILES_${place}} PARENT_SCOPE)
    set(LUMO_QCBOR_FINDING "${LUMO_QCBOR_LIBRARY} has another interface" PARENT_SCOPE)
    set(LUMO_QCBOR_INCLUDES ${includes} PARENT_SCOPE)
endfunction()
