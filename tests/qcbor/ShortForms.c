/* The short forms as a C program uses them; compiled pedantically. */
#include <qcbor.h>

void addWithShortForms(QCBOREncodeContext* pCtx);

void addWithShortForms(QCBOREncodeContext* pCtx) {
    static const uint8_t kBytes[] = {1, 2};
    MakeUsefulBufOnStack(copy, 2);
    UsefulBuf_Copy(&copy, ByteArrayLiteralToUsefulBufC(kBytes));

    QCBOREncode_OpenMap(pCtx);
    QCBOREncode_AddUInt64ToMap(pCtx, "u", 1);
    QCBOREncode_AddUInt64ToMapN(pCtx, 1, 2);
    QCBOREncode_AddInt64ToMap(pCtx, "i", -1);
    QCBOREncode_AddInt64ToMapN(pCtx, -1, -2);
    QCBOREncode_AddBytesToMap(pCtx, "b", UsefulBuf_Const(copy));
    QCBOREncode_AddBytesToMapN(pCtx, 2, NULLUsefulBufC);
    QCBOREncode_AddTextToMap(pCtx, "t", SZToUsefulBufC("x"));
    QCBOREncode_AddTextToMapN(pCtx, 3, SZLiteralToUsefulBufC("y"));
    QCBOREncode_AddSimpleToMap(pCtx, "s", CBOR_SIMPLEV_NULL);
    QCBOREncode_AddSimpleToMapN(pCtx, 4, CBOR_SIMPLEV_UNDEF);
    QCBOREncode_AddBoolToMap(pCtx, "o", copy.len == 2);
    QCBOREncode_AddBoolToMapN(pCtx, 5, UsefulBuf_IsNULLOrEmpty(copy));
    QCBOREncode_OpenMapInMap(pCtx, "m");
    QCBOREncode_CloseMap(pCtx);
    QCBOREncode_OpenMapInMapN(pCtx, 6);
    QCBOREncode_CloseMap(pCtx);
    QCBOREncode_OpenArrayInMap(pCtx, "a");
    QCBOREncode_AddBool(pCtx, true);
    QCBOREncode_CloseArray(pCtx);
    QCBOREncode_OpenArrayInMapN(pCtx, 7);
    QCBOREncode_CloseArray(pCtx);
    QCBOREncode_CloseMap(pCtx);
}
