/* QCBOR's older call interface, as far as the library calls it. Published copies have no guards for
 * C++ either: who includes this from C++ wraps it in extern "C". */
#pragma once

#include <stdbool.h>
#include <stdint.h>

#include "UsefulBuf.h"

#define QCBOR_SUCCESS 0
#define QCBOR_ERR_BUFFER_TOO_SMALL 1
#define QCBOR_ERR_ARRAY_NESTING_TOO_DEEP 2
#define QCBOR_ERR_ARRAY_TOO_LONG 3
#define QCBOR_ERR_TOO_MANY_CLOSES 4
#define QCBOR_ERR_UNSUPPORTED 5
#define QCBOR_ERR_HIT_END 6
#define QCBOR_ERR_BUFFER_TOO_LARGE 7
#define QCBOR_ERR_INVALID_SIMPLE 8
#define QCBOR_ERR_INT_OVERFLOW 9
#define QCBOR_ERR_MAP_LABEL_TYPE 10
#define QCBOR_ERR_ARRAY_OR_MAP_STILL_OPEN 11
#define QCBOR_ERR_BAD_SIMPLE 12
#define QCBOR_ERR_DATE_OVERFLOW 13
#define QCBOR_ERR_INVALID_CBOR 14
#define QCBOR_ERR_BAD_OPT_TAG 15
#define QCBOR_ERR_EXTRA_BYTES 16

#define QCBOR_TYPE_INT64 2
#define QCBOR_TYPE_UINT64 3
#define QCBOR_TYPE_ARRAY 4
#define QCBOR_TYPE_MAP 5
#define QCBOR_TYPE_BYTE_STRING 6
#define QCBOR_TYPE_TEXT_STRING 7
#define QCBOR_TYPE_FALSE 20
#define QCBOR_TYPE_TRUE 21
#define QCBOR_TYPE_NULL 22
#define QCBOR_TYPE_UNDEF 23

#define QCBOR_DECODE_MODE_NORMAL 0
#define QCBOR_MAX_ARRAY_NESTING 10
#define QCBOR_MAX_ITEMS_IN_ARRAY 65535
#define QCBOR_NO_INT_LABEL INT64_MAX

#define CBOR_SIMPLEV_FALSE 20
#define CBOR_SIMPLEV_TRUE 21
#define CBOR_SIMPLEV_NULL 22
#define CBOR_SIMPLEV_UNDEF 23

#define CBOR_TAG_NONE UINT64_MAX

/* The contexts are opaque but for uError. They stand on the caller's stack, so their sizes are
 * published: 136 and 96 bytes of a 64-bit process, 112 and 68 of a 32-bit one. */
typedef struct _QCBOREncodeContext {
    void* opaque_output[4];
    uint8_t uError;
    uint32_t opaque_nesting[sizeof(void*) == 8 ? 25 : 23];
} QCBOREncodeContext;

typedef struct _QCBORDecodeContext {
    void* opaque[sizeof(void*) == 8 ? 12 : 17];
} QCBORDecodeContext;

typedef struct {
    uint8_t uDataType;
    uint8_t uNestingLevel;
    uint8_t uLabelType;
    union {
        int64_t int64;
        uint64_t uint64;
        UsefulBufC string;
        uint16_t uCount;
        float fnum;
        double dfnum;
        struct {
            int64_t nSeconds;
            double fSecondsFraction;
        } epochDate;
        UsefulBufC dateString;
        UsefulBufC bigNum;
        uint8_t uSimple;
    } val;
    union {
        UsefulBufC string;
        int64_t int64;
        uint64_t uint64;
    } label;
    uint64_t uTag;
    uint64_t uTagBits;
} QCBORItem;

void QCBOREncode_Init(QCBOREncodeContext* pCtx, void* pBuf, size_t uBufLen);
void QCBOREncode_OpenMap_3(QCBOREncodeContext* pCtx, const char* szLabel, uint64_t nLabel,
                           uint64_t uTag, uint8_t bBstrWrap);
void QCBOREncode_OpenArray_3(QCBOREncodeContext* pCtx, const char* szLabel, uint64_t nLabel,
                             uint64_t uTag, bool bBstrWrap);
void QCBOREncode_CloseArray(QCBOREncodeContext* pCtx);
void QCBOREncode_AddUInt64_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                             uint64_t uTag, uint64_t uNum);
void QCBOREncode_AddInt64_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                            uint64_t uTag, int64_t nNum);
void QCBOREncode_AddBytes_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                            uint64_t uTag, UsefulBufC Bytes);
void QCBOREncode_AddSimple_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                             uint64_t uTag, uint8_t uSimple);
int QCBOREncode_Finish(QCBOREncodeContext* pCtx, size_t* uEncodedLen);

void QCBORDecode_Init(QCBORDecodeContext* pCtx, UsefulBufC EncodedCBOR, int8_t nMode);
int QCBORDecode_GetNext(QCBORDecodeContext* pCtx, QCBORItem* pDecodedItem);
int QCBORDecode_Finish(QCBORDecodeContext* pCtx);
