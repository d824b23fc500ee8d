// QCBOR's functions are C: the library's wrapping of the header is right if these agree with it.
#include "CborHelpers.h"

extern "C" {
void QCBOREncode_Init(QCBOREncodeContext* pCtx, void* pBuf, size_t uBufLen);
void QCBORDecode_Init(QCBORDecodeContext* pCtx, UsefulBufC EncodedCBOR, int8_t nMode);
}

static_assert(sizeof(QCBOREncodeContext) == (sizeof(void*) == 8 ? 136 : 112));
static_assert(offsetof(QCBOREncodeContext, uError) == (sizeof(void*) == 8 ? 32 : 16));
static_assert(sizeof(QCBORDecodeContext) == (sizeof(void*) == 8 ? 96 : 68));
static_assert(sizeof(QCBORItem) == (sizeof(void*) == 8 ? 56 : 48));
