/* CBOR (RFC 8949) encoder and decoder with QCBOR's older call interface.
 *
 * Both contexts live where the caller puts them, own nothing and need no clean-up; nothing is
 * allocated. Integers on the wire are big-endian, as CBOR says; all lengths are in bytes. */
#pragma once

#include <stdbool.h>
#include <stdint.h>

#include "UsefulBuf.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Results ---- */

#define QCBOR_SUCCESS 0
#define QCBOR_ERR_BUFFER_TOO_SMALL 1
#define QCBOR_ERR_ARRAY_NESTING_TOO_DEEP 2
#define QCBOR_ERR_ARRAY_TOO_LONG 3
#define QCBOR_ERR_TOO_MANY_CLOSES 4
#define QCBOR_ERR_UNSUPPORTED 5 /* indefinite lengths, breaks, reserved heads */
#define QCBOR_ERR_HIT_END 6     /* end of input, or an item that the input's end cuts off */
#define QCBOR_ERR_BUFFER_TOO_LARGE 7
#define QCBOR_ERR_INVALID_SIMPLE 8 /* never produced */
#define QCBOR_ERR_INT_OVERFLOW 9
#define QCBOR_ERR_MAP_LABEL_TYPE 10
#define QCBOR_ERR_ARRAY_OR_MAP_STILL_OPEN 11
#define QCBOR_ERR_BAD_SIMPLE 12
#define QCBOR_ERR_DATE_OVERFLOW 13
#define QCBOR_ERR_INVALID_CBOR 14
#define QCBOR_ERR_BAD_OPT_TAG 15
#define QCBOR_ERR_EXTRA_BYTES 16

/* ---- Limits ---- */

#define QCBOR_MAX_ARRAY_NESTING 10
#define QCBOR_MAX_ITEMS_IN_ARRAY 65535

/* ---- CBOR's own numbers ---- */

#define CBOR_MAJOR_TYPE_POSITIVE_INT 0
#define CBOR_MAJOR_TYPE_NEGATIVE_INT 1
#define CBOR_MAJOR_TYPE_BYTE_STRING 2
#define CBOR_MAJOR_TYPE_TEXT_STRING 3
#define CBOR_MAJOR_TYPE_ARRAY 4
#define CBOR_MAJOR_TYPE_MAP 5
#define CBOR_MAJOR_TYPE_OPTIONAL 6
#define CBOR_MAJOR_TYPE_SIMPLE 7

#define LEN_IS_ONE_BYTE 24
#define LEN_IS_TWO_BYTES 25
#define LEN_IS_FOUR_BYTES 26
#define LEN_IS_EIGHT_BYTES 27
#define ADDINFO_RESERVED1 28
#define ADDINFO_RESERVED2 29
#define ADDINFO_RESERVED3 30
#define LEN_IS_INDEFINITE 31

#define CBOR_SIMPLEV_FALSE 20
#define CBOR_SIMPLEV_TRUE 21
#define CBOR_SIMPLEV_NULL 22
#define CBOR_SIMPLEV_UNDEF 23
#define CBOR_SIMPLEV_ONEBYTE 24
#define HALF_PREC_FLOAT 25
#define SINGLE_PREC_FLOAT 26
#define DOUBLE_PREC_FLOAT 27
#define CBOR_SIMPLE_BREAK 31

#define CBOR_TAG_NONE UINT64_MAX /* no tag, for the encoding functions */
#define CBOR_TAG_DATE_STRING 0
#define CBOR_TAG_DATE_EPOCH 1
#define CBOR_TAG_POS_BIGNUM 2
#define CBOR_TAG_NEG_BIGNUM 3
#define CBOR_TAG_FRACTION 4
#define CBOR_TAG_BIGFLOAT 5
#define CBOR_TAG_ENC_AS_B64URL 21
#define CBOR_TAG_ENC_AS_B64 22
#define CBOR_TAG_ENC_AS_B16 23
#define CBOR_TAG_CBOR 24
#define CBOR_TAG_URI 32
#define CBOR_TAG_B64URL 33
#define CBOR_TAG_B64 34
#define CBOR_TAG_REGEX 35
#define CBOR_TAG_MIME 36
#define CBOR_TAG_BIN_UUID 37
#define CBOR_TAG_CBOR_MAGIC 55799

/* Bits of QCBORItem.uTagBits: tag t below 63 has bit t, and 55799 has bit 63. */
#define QCBOR_TAGFLAG_DATE_STRING (UINT64_C(1) << CBOR_TAG_DATE_STRING)
#define QCBOR_TAGFLAG_DATE_EPOCH (UINT64_C(1) << CBOR_TAG_DATE_EPOCH)
#define QCBOR_TAGFLAG_POS_BIGNUM (UINT64_C(1) << CBOR_TAG_POS_BIGNUM)
#define QCBOR_TAGFLAG_NEG_BIGNUM (UINT64_C(1) << CBOR_TAG_NEG_BIGNUM)
#define QCBOR_TAGFLAG_FRACTION (UINT64_C(1) << CBOR_TAG_FRACTION)
#define QCBOR_TAGFLAG_BIGFLOAT (UINT64_C(1) << CBOR_TAG_BIGFLOAT)
#define QCBOR_TAGFLAG_ENC_AS_B64URL (UINT64_C(1) << CBOR_TAG_ENC_AS_B64URL)
#define QCBOR_TAGFLAG_ENC_AS_B64 (UINT64_C(1) << CBOR_TAG_ENC_AS_B64)
#define QCBOR_TAGFLAG_ENC_AS_B16 (UINT64_C(1) << CBOR_TAG_ENC_AS_B16)
#define QCBOR_TAGFLAG_CBOR (UINT64_C(1) << CBOR_TAG_CBOR)
#define QCBOR_TAGFLAG_URI (UINT64_C(1) << CBOR_TAG_URI)
#define QCBOR_TAGFLAG_B64URL (UINT64_C(1) << CBOR_TAG_B64URL)
#define QCBOR_TAGFLAG_B64 (UINT64_C(1) << CBOR_TAG_B64)
#define QCBOR_TAGFLAG_REGEX (UINT64_C(1) << CBOR_TAG_REGEX)
#define QCBOR_TAGFLAG_MIME (UINT64_C(1) << CBOR_TAG_MIME)
#define QCBOR_TAGFLAG_CBOR_MAGIC (UINT64_C(1) << 63)

/* ---- Encoding ----
 *
 * Items go straight into the caller's buffer, every head in its shortest form. Add and Open
 * return nothing: an error sticks in the context's `uError`, further items are not written, and
 * Finish reports it. A caller may read `uError`, and may set it to make the encoding fail. */

typedef struct {
    UsefulBuf UB; /* the caller's buffer; ptr is null where only the length is wanted */
    size_t uUsed; /* bytes so far; never more than UB.len */
    bool bFull;   /* something did not fit; UB ends there, so that nothing more is written */
} QCBOROutBuf;

typedef struct {
    uint32_t uStart;    /* where the container's content begins in the buffer */
    uint16_t uCount;    /* items so far, labels included */
    uint8_t uMajorType; /* CBOR_MAJOR_TYPE_ARRAY or _MAP */
    bool bBstrWrap;     /* the finished container goes into a byte string */
} QCBOREncodeLevel;

/* NOLINTNEXTLINE(bugprone-reserved-identifier): the published tag */
typedef struct _QCBOREncodeContext {
    QCBOROutBuf OutBuf;
    uint8_t uError; /* QCBOR_SUCCESS or the pending QCBOR_ERR_... */
    uint8_t uLevel; /* open containers */
    QCBOREncodeLevel Levels[QCBOR_MAX_ARRAY_NESTING + 1]; /* [0] is the top level */
} QCBOREncodeContext;

typedef struct {
    UsefulBuf Bytes;
    uint16_t uItems; /* at the top level, labels included */
} EncodedCBOR;

typedef struct {
    UsefulBufC Bytes;
    uint16_t uItems;
} EncodedCBORC;

/* The nLabel that stands for "no integer label". */
#define QCBOR_NO_INT_LABEL INT64_MAX

/* Starts over, which is also the only way out of an error. With a null pBuf nothing is stored and
 * only lengths are counted, up to uBufLen all the same. More than UINT32_MAX bytes are
 * QCBOR_ERR_BUFFER_TOO_LARGE. */
void QCBOREncode_Init(QCBOREncodeContext* pCtx, void* pBuf, size_t uBufLen);

/* Every function below writes the integer label (unless it is QCBOR_NO_INT_LABEL), the text label
 * (unless it is null), the tag (unless it is CBOR_TAG_NONE) and then its item. Labels are items:
 * the caller gives one to each entry of a map and to nothing else. */

/* Opens a container; its head is written when it is closed. With bBstrWrap the finished container
 * becomes the content of a byte string. */
void QCBOREncode_OpenMap_3(QCBOREncodeContext* pCtx, const char* szLabel, uint64_t nLabel,
                           uint64_t uTag, uint8_t bBstrWrap);
void QCBOREncode_OpenArray_3(QCBOREncodeContext* pCtx, const char* szLabel, uint64_t nLabel,
                             uint64_t uTag, bool bBstrWrap);

/* Closes the innermost container, array or map. */
void QCBOREncode_CloseArray(QCBOREncodeContext* pCtx);

void QCBOREncode_AddUInt64_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                             uint64_t uTag, uint64_t uNum);
void QCBOREncode_AddInt64_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                            uint64_t uTag, int64_t nNum);

/* The bytes are copied; their pointer may be null if they are none, or if only lengths are counted.
 * Text is not checked for UTF-8. UINT32_MAX bytes and more are QCBOR_ERR_BUFFER_TOO_LARGE. */
void QCBOREncode_AddBytes_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                            uint64_t uTag, UsefulBufC Bytes);
void QCBOREncode_AddText_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                           uint64_t uTag, UsefulBufC Bytes);

/* uSimple is one of CBOR_SIMPLEV_FALSE to _UNDEF; any other is QCBOR_ERR_BAD_SIMPLE. */
void QCBOREncode_AddSimple_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                             uint64_t uTag, uint8_t uSimple);

/* Returns QCBOR_SUCCESS and the encoded length, or the pending error, else "still open", else
 * "too small"; on an error the output is untouched and the error sticks. */
int QCBOREncode_Finish(QCBOREncodeContext* pCtx, size_t* uEncodedLen);
int QCBOREncode_Finish2(QCBOREncodeContext* pCtx, EncodedCBOR* pEncodedCBOR);

/* Short forms: no tag, no wrapping; ToMap takes a text label and ToMapN an integer label. */
#define QCBOREncode_AddUInt64(pCtx, uNum) \
    QCBOREncode_AddUInt64_3((pCtx), NULL, QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, (uNum))
#define QCBOREncode_AddUInt64ToMap(pCtx, szLabel, uNum) \
    QCBOREncode_AddUInt64_3((pCtx), (szLabel), QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, (uNum))
#define QCBOREncode_AddUInt64ToMapN(pCtx, nLabel, uNum) \
    QCBOREncode_AddUInt64_3((pCtx), NULL, (nLabel), CBOR_TAG_NONE, (uNum))

#define QCBOREncode_AddInt64(pCtx, nNum) \
    QCBOREncode_AddInt64_3((pCtx), NULL, QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, (nNum))
#define QCBOREncode_AddInt64ToMap(pCtx, szLabel, nNum) \
    QCBOREncode_AddInt64_3((pCtx), (szLabel), QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, (nNum))
#define QCBOREncode_AddInt64ToMapN(pCtx, nLabel, nNum) \
    QCBOREncode_AddInt64_3((pCtx), NULL, (nLabel), CBOR_TAG_NONE, (nNum))

#define QCBOREncode_AddBytes(pCtx, Bytes) \
    QCBOREncode_AddBytes_3((pCtx), NULL, QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, (Bytes))
#define QCBOREncode_AddBytesToMap(pCtx, szLabel, Bytes) \
    QCBOREncode_AddBytes_3((pCtx), (szLabel), QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, (Bytes))
#define QCBOREncode_AddBytesToMapN(pCtx, nLabel, Bytes) \
    QCBOREncode_AddBytes_3((pCtx), NULL, (nLabel), CBOR_TAG_NONE, (Bytes))

#define QCBOREncode_AddText(pCtx, Bytes) \
    QCBOREncode_AddText_3((pCtx), NULL, QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, (Bytes))
#define QCBOREncode_AddTextToMap(pCtx, szLabel, Bytes) \
    QCBOREncode_AddText_3((pCtx), (szLabel), QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, (Bytes))
#define QCBOREncode_AddTextToMapN(pCtx, nLabel, Bytes) \
    QCBOREncode_AddText_3((pCtx), NULL, (nLabel), CBOR_TAG_NONE, (Bytes))

#define QCBOREncode_AddSimple(pCtx, uSimple) \
    QCBOREncode_AddSimple_3((pCtx), NULL, QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, (uSimple))
#define QCBOREncode_AddSimpleToMap(pCtx, szLabel, uSimple) \
    QCBOREncode_AddSimple_3((pCtx), (szLabel), QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, (uSimple))
#define QCBOREncode_AddSimpleToMapN(pCtx, nLabel, uSimple) \
    QCBOREncode_AddSimple_3((pCtx), NULL, (nLabel), CBOR_TAG_NONE, (uSimple))

#define QCBOREncode_AddBool(pCtx, bValue) \
    QCBOREncode_AddSimple((pCtx), (bValue) ? CBOR_SIMPLEV_TRUE : CBOR_SIMPLEV_FALSE)
#define QCBOREncode_AddBoolToMap(pCtx, szLabel, bValue) \
    QCBOREncode_AddSimpleToMap((pCtx), (szLabel), (bValue) ? CBOR_SIMPLEV_TRUE : CBOR_SIMPLEV_FALSE)
#define QCBOREncode_AddBoolToMapN(pCtx, nLabel, bValue) \
    QCBOREncode_AddSimpleToMapN((pCtx), (nLabel), (bValue) ? CBOR_SIMPLEV_TRUE : CBOR_SIMPLEV_FALSE)

#define QCBOREncode_OpenArray(pCtx) \
    QCBOREncode_OpenArray_3((pCtx), NULL, QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, 0)
#define QCBOREncode_OpenArrayInMap(pCtx, szLabel) \
    QCBOREncode_OpenArray_3((pCtx), (szLabel), QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, 0)
#define QCBOREncode_OpenArrayInMapN(pCtx, nLabel) \
    QCBOREncode_OpenArray_3((pCtx), NULL, (nLabel), CBOR_TAG_NONE, 0)

#define QCBOREncode_OpenMap(pCtx) \
    QCBOREncode_OpenMap_3((pCtx), NULL, QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, 0)
#define QCBOREncode_OpenMapInMap(pCtx, szLabel) \
    QCBOREncode_OpenMap_3((pCtx), (szLabel), QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, 0)
#define QCBOREncode_OpenMapInMapN(pCtx, nLabel) \
    QCBOREncode_OpenMap_3((pCtx), NULL, (nLabel), CBOR_TAG_NONE, 0)

#define QCBOREncode_CloseMap(pCtx) QCBOREncode_CloseArray(pCtx)

/* ---- Decoding ---- */

#define QCBOR_DECODE_MODE_NORMAL 0
#define QCBOR_DECODE_MODE_MAP_STRINGS_ONLY 1 /* labels must be text */
#define QCBOR_DECODE_MODE_MAP_AS_ARRAY 2     /* labels come as items of their own */

/* QCBORItem.uDataType and .uLabelType, with the member of `val` (or `label`) that holds it. */
#define QCBOR_TYPE_INT64 2          /* int64 */
#define QCBOR_TYPE_UINT64 3         /* uint64; only values above INT64_MAX */
#define QCBOR_TYPE_ARRAY 4          /* uCount items follow, one level deeper */
#define QCBOR_TYPE_MAP 5            /* uCount pairs follow, one level deeper */
#define QCBOR_TYPE_BYTE_STRING 6    /* string */
#define QCBOR_TYPE_TEXT_STRING 7    /* string */
#define QCBOR_TYPE_POSBIGNUM 9      /* bigNum */
#define QCBOR_TYPE_NEGBIGNUM 10     /* bigNum n, for the number -1 - n */
#define QCBOR_TYPE_DATE_STRING 11   /* dateString */
#define QCBOR_TYPE_DATE_EPOCH 12    /* epochDate */
#define QCBOR_TYPE_UKNOWN_SIMPLE 13 /* uSimple; the published spelling */
#define QCBOR_TYPE_FALSE 20
#define QCBOR_TYPE_TRUE 21
#define QCBOR_TYPE_NULL 22
#define QCBOR_TYPE_UNDEF 23
#define QCBOR_TYPE_FLOAT 26   /* fnum; never produced */
#define QCBOR_TYPE_DOUBLE 27  /* dfnum; half and single precision come as this, too */
#define QCBOR_TYPE_OPTTAG 254 /* internal */
#define QCBOR_TYPE_BREAK 255  /* internal */

typedef struct QCBORItem {
    uint8_t uDataType;
    uint8_t uNestingLevel; /* 0 is the top level; a container's head reports the level outside it */
    uint8_t uLabelType;
    union {
        int64_t int64;
        uint64_t uint64;
        UsefulBufC string; /* strings point into the input */
        uint16_t uCount;
        float fnum;
        double dfnum;
        struct {
            int64_t nSeconds; /* since 1970-01-01T00:00Z */
            double fSecondsFraction;
        } epochDate;
        UsefulBufC dateString;
        UsefulBufC bigNum; /* big-endian */
        uint8_t uSimple;
    } val;
    union {
        UsefulBufC string;
        int64_t int64;
        uint64_t uint64;
    } label;
    uint64_t uTag;     /* the innermost tag; 0 also where there is none */
    uint64_t uTagBits; /* QCBOR_TAGFLAG_... of all its tags */
} QCBORItem;

typedef struct {
    uint32_t uRemaining; /* entries that are still to come: items, or pairs of a map */
    bool bMap;           /* its entries are label and value */
} QCBORDecodeLevel;

/* NOLINTNEXTLINE(bugprone-reserved-identifier): the published tag */
typedef struct _QCBORDecodeContext {
    UsefulBufC InBuf;
    size_t uPosition;
    bool bHitEnd; /* an item was cut off: nothing more is read */
    uint8_t uDecodeMode;
    uint8_t uLevel;                                       /* open containers */
    QCBORDecodeLevel Levels[QCBOR_MAX_ARRAY_NESTING + 1]; /* [0] is the top level */
} QCBORDecodeContext;

/* The input must stay where it is as long as the context or a decoded string is used. nMode is one
 * of QCBOR_DECODE_MODE_...; any other acts as NORMAL. */
void QCBORDecode_Init(QCBORDecodeContext* pCtx, UsefulBufC Encoded, int8_t nMode);

/* Returns the next item in pre-order: the head of a container, then what it contains. In a map one
 * call takes label and value.
 *
 * On success it writes uDataType, the one member of val that the type has, uTag, uTagBits and
 * uNestingLevel, and in a map uLabelType and the one member of label. All else keeps what the
 * caller had there: one who wants to recognise "no label" fills the item beforehand. On an error
 * the type, val and the tags may have changed. Repeated calls always come to QCBOR_ERR_HIT_END and
 * stay there. */
int QCBORDecode_GetNext(QCBORDecodeContext* pCtx, QCBORItem* pDecodedItem);

/* QCBOR_ERR_EXTRA_BYTES if unread bytes remain, else QCBOR_SUCCESS, also with containers that lack
 * entries. Changes nothing. */
int QCBORDecode_Finish(QCBORDecodeContext* pCtx);

#ifdef __cplusplus
}
#endif
