// CBOR reader and writer helpers over QCBOR. They are part of the library's interface and are
// exported under these names. None of them allocates or logs, and no pointer may be null.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

extern "C" {
// Published copies of this header have no guards of their own for C++.
#include <qcbor.h>
}

// A cursor over a message. Its owner initialises the decoder over the message, which must outlive
// what is read from it, fills the item with all-ones bytes and clears the error.
//
// The first failure sticks: every helper called after it does nothing, so a run of getters is
// tested once at its end, and what they gave is used only after that.
struct CborReader {
    QCBORDecodeContext* decoder;
    QCBORItem item;  // the container entered last, with its element count
    int32_t error;   // 0; 1 or -1, a QCBOR code or a memcmp result, as each helper says
};

extern "C" {

// ---- Reading ----
//
// Each helper reads the next item in order; maps are not searched.

// Enter a container: its items are read next, and nothing marks its end. 1 if entered, and then
// `reader->item` is the container. Else 0, the error -1 and the item as it was. The forms with a
// label want that integer label.
int CR_ARRAY_ENTER(CborReader* reader);
int CR_MAP_ENTER(CborReader* reader);
int CR_ARRAY_LABEL_ENTER(CborReader* reader, int64_t label);
int CR_MAP_LABEL_ENTER(CborReader* reader, int64_t label);

// Getters. `out` is written only on success. Each value has three forms:
//
//   CRGet<Value>                       a failed one sets
//     Bool, Uint64, Int64, BytesOrString   1, whatever failed
//     Uint32, Int32, Uint8                 QCBOR's code where there is no item, -1 for a bad value
//   CRGet<Value>FromMapWithUint64Label and
//   CRGet<Value>FromMapWithStringLabel     the same two, and 1 for another label
//
// A bad value has the wrong type or range. The first form does not look at a label. A negative
// integer label is wanted by its 64-bit two's complement. A text label ends with a zero byte; one
// of the right length but with other bytes sets memcmp's result.

// 1 for true, 0 for false.
void CRGetBool(CborReader* reader, uint8_t* out);
void CRGetBoolFromMapWithUint64Label(CborReader* reader, uint64_t label, uint8_t* out);
void CRGetBoolFromMapWithStringLabel(CborReader* reader, const char* label, uint8_t* out);

// Any integer of 64 bits; a negative one gives its two's-complement bits.
void CRGetUint64(CborReader* reader, uint64_t* out);
void CRGetUint64FromMapWithUint64Label(CborReader* reader, uint64_t label, uint64_t* out);
void CRGetUint64FromMapWithStringLabel(CborReader* reader, const char* label, uint64_t* out);

// From here to Uint8, an integer within the range of the output.
void CRGetInt64(CborReader* reader, int64_t* out);
void CRGetInt64FromMapWithUint64Label(CborReader* reader, uint64_t label, int64_t* out);
void CRGetInt64FromMapWithStringLabel(CborReader* reader, const char* label, int64_t* out);

void CRGetUint32(CborReader* reader, uint32_t* out);
void CRGetUint32FromMapWithUint64Label(CborReader* reader, uint64_t label, uint32_t* out);
void CRGetUint32FromMapWithStringLabel(CborReader* reader, const char* label, uint32_t* out);

void CRGetInt32(CborReader* reader, int32_t* out);
void CRGetInt32FromMapWithUint64Label(CborReader* reader, uint64_t label, int32_t* out);
void CRGetInt32FromMapWithStringLabel(CborReader* reader, const char* label, int32_t* out);

void CRGetUint8(CborReader* reader, uint8_t* out);
void CRGetUint8FromMapWithUint64Label(CborReader* reader, uint64_t label, uint8_t* out);
void CRGetUint8FromMapWithStringLabel(CborReader* reader, const char* label, uint8_t* out);

// `type` is QCBOR_TYPE_BYTE_STRING or QCBOR_TYPE_TEXT_STRING; the other kind is a bad value. The
// length is in bytes; the bytes stay in the message, and text has no zero byte at its end.
void CRGetBytesOrString(CborReader* reader, uint8_t type, keymaster_blob_t* out);
void CRGetBytesOrStringFromMapWithUint64Label(CborReader* reader, uint8_t type, uint64_t label,
                                              keymaster_blob_t* out);
void CRGetBytesOrStringFromMapWithStringLabel(CborReader* reader, uint8_t type, const char* label,
                                              keymaster_blob_t* out);

// ---- Writing ----
//
// Open a container, closed with QCBOREncode_CloseArray whichever it is. Always 1; the encoder keeps
// its error until QCBOREncode_Finish.
int CW_ARRAY_ENTER(QCBOREncodeContext* encoder);
int CW_MAP_ENTER(QCBOREncodeContext* encoder);
int CW_ARRAY_LABEL_ENTER(QCBOREncodeContext* encoder, int64_t label);
int CW_MAP_LABEL_ENTER(QCBOREncodeContext* encoder, int64_t label);

}  // extern "C"
