#include <cbor.h>
#include <qcbor.h>

namespace {

// The longest head: one byte of type and eight of argument.
constexpr size_t kMaxHead = 9;

// Any position in a buffer then fits into the 32 bits that a level has for it.
constexpr uint64_t kMaxBuffer = UINT32_MAX;

// The last of the 65535 numbers that a level's count can have is kept free.
constexpr uint16_t kMaxItems = QCBOR_MAX_ITEMS_IN_ARRAY - 1;

bool failed(const QCBOREncodeContext& context) {
    return context.uError != QCBOR_SUCCESS;
}

void setFirstError(QCBOREncodeContext& context, uint8_t error) {
    if (!failed(context)) {
        context.uError = error;
    }
}

QCBOREncodeLevel& innermost(QCBOREncodeContext& context) {
    return context.Levels[context.uLevel];
}

uint8_t* bytesOf(const QCBOROutBuf& out) {
    return static_cast<uint8_t*>(out.UB.ptr);
}

// Puts `size` bytes in at `position` and moves what was there behind them, or notes that they do
// not fit and writes nothing.
void insert(QCBOROutBuf& out, size_t position, const void* bytes, size_t size) {
    if (out.bFull || size > out.UB.len - out.uUsed) {
        out.bFull = true;
        return;
    }
    if (size > 0 && !UsefulBuf_IsNULL(out.UB)) {
        uint8_t* const place = bytesOf(out) + position;
        memmove(place + size, place, out.uUsed - position);
        memcpy(place, bytes, size);
    }
    out.uUsed += size;
}

void append(QCBOROutBuf& out, const void* bytes, size_t size) {
    insert(out, out.uUsed, bytes, size);
}

bool countItem(QCBOREncodeContext& context) {
    QCBOREncodeLevel& level = innermost(context);
    if (level.uCount == kMaxItems) {
        setFirstError(context, QCBOR_ERR_ARRAY_TOO_LONG);
        return false;
    }
    ++level.uCount;
    return true;
}

// `encodeHead(buffer, size)` is one of libcbor's encoders with its value bound.
template <typename EncodeHead>
void appendHead(QCBOREncodeContext& context, EncodeHead encodeHead) {
    uint8_t head[kMaxHead];
    append(context.OutBuf, head, encodeHead(head, sizeof(head)));
}

template <typename EncodeHead>
void addItem(QCBOREncodeContext& context, EncodeHead encodeHead, UsefulBufC content = {}) {
    if (failed(context) || !countItem(context)) {
        return;
    }
    appendHead(context, encodeHead);
    append(context.OutBuf, content.ptr, content.len);
}

void addUnsigned(QCBOREncodeContext& context, uint64_t value) {
    addItem(context,
            [&](uint8_t* head, size_t size) { return cbor_encode_uint(value, head, size); });
}

void addInteger(QCBOREncodeContext& context, int64_t value) {
    if (value >= 0) {
        addUnsigned(context, static_cast<uint64_t>(value));
        return;
    }
    // -1 - value, without the overflow that negating INT64_MIN would be.
    const uint64_t magnitude = ~static_cast<uint64_t>(value);
    addItem(context,
            [&](uint8_t* head, size_t size) { return cbor_encode_negint(magnitude, head, size); });
}

using StringHead = size_t (*)(size_t, unsigned char*, size_t);

void addString(QCBOREncodeContext& context, StringHead encodeHead, UsefulBufC string) {
    addItem(
        context, [&](uint8_t* head, size_t size) { return encodeHead(string.len, head, size); },
        string);
}

// False, with the error set, for a string that no buffer could hold.
bool acceptsLength(QCBOREncodeContext& context, size_t length) {
    if (length < kMaxBuffer) {
        return true;
    }
    context.uError = QCBOR_ERR_BUFFER_TOO_LARGE;
    return false;
}

// Both labels are written where both are given.
void addLabelAndTag(QCBOREncodeContext& context, const char* textLabel, int64_t label,
                    uint64_t tag) {
    if (label != QCBOR_NO_INT_LABEL) {
        addInteger(context, label);
    }
    if (textLabel != nullptr) {
        const UsefulBufC text = SZToUsefulBufC(textLabel);
        if (acceptsLength(context, text.len)) {
            addString(context, cbor_encode_string_start, text);
        }
    }
    if (tag != CBOR_TAG_NONE && !failed(context)) {
        appendHead(context,
                   [&](uint8_t* head, size_t size) { return cbor_encode_tag(tag, head, size); });
    }
}

void addLabelledString(QCBOREncodeContext& context, const char* textLabel, int64_t label,
                       uint64_t tag, StringHead encodeHead, UsefulBufC string) {
    if (acceptsLength(context, string.len)) {
        addLabelAndTag(context, textLabel, label, tag);
        addString(context, encodeHead, string);
    }
}

// Levels are opened and closed after an error, too, so that balanced calls keep that error.
void open(QCBOREncodeContext& context, const char* textLabel, uint64_t label, uint64_t tag,
          uint8_t majorType, bool wrap) {
    addLabelAndTag(context, textLabel, static_cast<int64_t>(label), tag);
    if (context.uLevel == QCBOR_MAX_ARRAY_NESTING) {
        setFirstError(context, QCBOR_ERR_ARRAY_NESTING_TOO_DEEP);
        return;
    }
    ++context.uLevel;
    innermost(context) = {static_cast<uint32_t>(context.OutBuf.uUsed), 0, majorType, wrap};
}

size_t encodeContainerHead(const QCBOREncodeLevel& level, uint8_t* head, size_t size) {
    if (level.uMajorType == CBOR_MAJOR_TYPE_MAP) {
        return cbor_encode_map_start(level.uCount / 2, head, size);
    }
    return cbor_encode_array_start(level.uCount, head, size);
}

// Inserts the head of a container, and before it that of the byte string it is wrapped in.
void insertHeads(QCBOROutBuf& out, const QCBOREncodeLevel& level) {
    uint8_t container[kMaxHead];
    const size_t containerSize = encodeContainerHead(level, container, sizeof(container));

    uint8_t heads[2 * kMaxHead];
    size_t size = 0;
    if (level.bBstrWrap) {
        const size_t content = containerSize + (out.uUsed - level.uStart);
        size = cbor_encode_bytestring_start(content, heads, kMaxHead);
    }
    memcpy(heads + size, container, containerSize);
    insert(out, level.uStart, heads, size + containerSize);
}

}  // namespace

void QCBOREncode_Init(QCBOREncodeContext* pCtx, void* pBuf, size_t uBufLen) {
    *pCtx = {};
    if (uint64_t{uBufLen} > kMaxBuffer) {
        pCtx->uError = QCBOR_ERR_BUFFER_TOO_LARGE;
        return;
    }
    pCtx->OutBuf.UB = UsefulBuf_Make(pBuf, uBufLen);
}

void QCBOREncode_OpenMap_3(QCBOREncodeContext* pCtx, const char* szLabel, uint64_t nLabel,
                           uint64_t uTag, uint8_t bBstrWrap) {
    open(*pCtx, szLabel, nLabel, uTag, CBOR_MAJOR_TYPE_MAP, bBstrWrap != 0);
}

void QCBOREncode_OpenArray_3(QCBOREncodeContext* pCtx, const char* szLabel, uint64_t nLabel,
                             uint64_t uTag, bool bBstrWrap) {
    open(*pCtx, szLabel, nLabel, uTag, CBOR_MAJOR_TYPE_ARRAY, bBstrWrap);
}

void QCBOREncode_CloseArray(QCBOREncodeContext* pCtx) {
    if (pCtx->uLevel == 0) {
        pCtx->uError = QCBOR_ERR_TOO_MANY_CLOSES;
        return;
    }
    const QCBOREncodeLevel closed = innermost(*pCtx);
    --pCtx->uLevel;
    if (!failed(*pCtx) && countItem(*pCtx)) {
        insertHeads(pCtx->OutBuf, closed);
    }
}

void QCBOREncode_AddUInt64_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                             uint64_t uTag, uint64_t uNum) {
    addLabelAndTag(*pCtx, szLabel, nLabel, uTag);
    addUnsigned(*pCtx, uNum);
}

void QCBOREncode_AddInt64_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                            uint64_t uTag, int64_t nNum) {
    addLabelAndTag(*pCtx, szLabel, nLabel, uTag);
    addInteger(*pCtx, nNum);
}

void QCBOREncode_AddBytes_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                            uint64_t uTag, UsefulBufC Bytes) {
    addLabelledString(*pCtx, szLabel, nLabel, uTag, cbor_encode_bytestring_start, Bytes);
}

void QCBOREncode_AddText_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                           uint64_t uTag, UsefulBufC Bytes) {
    addLabelledString(*pCtx, szLabel, nLabel, uTag, cbor_encode_string_start, Bytes);
}

void QCBOREncode_AddSimple_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                             uint64_t uTag, uint8_t uSimple) {
    if (uSimple < CBOR_SIMPLEV_FALSE || uSimple > CBOR_SIMPLEV_UNDEF) {
        pCtx->uError = QCBOR_ERR_BAD_SIMPLE;
        return;
    }
    addLabelAndTag(*pCtx, szLabel, nLabel, uTag);
    addItem(*pCtx,
            [&](uint8_t* head, size_t size) { return cbor_encode_ctrl(uSimple, head, size); });
}

int QCBOREncode_Finish2(QCBOREncodeContext* pCtx, EncodedCBOR* pEncodedCBOR) {
    if (pCtx->uLevel != 0) {
        setFirstError(*pCtx, QCBOR_ERR_ARRAY_OR_MAP_STILL_OPEN);
    }
    if (pCtx->OutBuf.bFull) {
        setFirstError(*pCtx, QCBOR_ERR_BUFFER_TOO_SMALL);
    }
    if (!failed(*pCtx)) {
        pEncodedCBOR->Bytes = UsefulBuf_Make(pCtx->OutBuf.UB.ptr, pCtx->OutBuf.uUsed);
        pEncodedCBOR->uItems = pCtx->Levels[0].uCount;
    }
    return pCtx->uError;
}

int QCBOREncode_Finish(QCBOREncodeContext* pCtx, size_t* uEncodedLen) {
    EncodedCBOR encoded;
    const int result = QCBOREncode_Finish2(pCtx, &encoded);
    if (result == QCBOR_SUCCESS) {
        *uEncodedLen = encoded.Bytes.len;
    }
    return result;
}
