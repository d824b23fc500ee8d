#include <cbor.h>
#include <qcbor.h>

namespace {

// The longest head: one byte of type and eight of argument.
constexpr size_t kMaxHead = 9;

// Kept free before a container's content: the whole head of one with up to 23 entries.
constexpr size_t kKeptFree = 1;

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

bool stores(const QCBOROutBuf& out) {
    return !UsefulBuf_IsNULL(out.UB);
}

size_t room(const QCBOROutBuf& out) {
    return out.UB.len - out.uUsed;
}

// Notes that something did not fit: nothing more is to be written, however small.
void close(QCBOROutBuf& out) {
    out.bFull = true;
    out.UB.len = out.uUsed;
}

// Claims `size` more bytes of the buffer; false if they do not fit.
bool take(QCBOROutBuf& out, size_t size) {
    if (size > room(out)) {
        close(out);
        return false;
    }
    out.uUsed += size;
    return true;
}

// One of libcbor's encoders. It returns the size of the head, or 0, with nothing written, for one
// that does not fit.
template <typename Argument>
using HeadEncoder = size_t (*)(Argument, unsigned char*, size_t);

template <typename Argument>
void appendHead(QCBOROutBuf& out, HeadEncoder<Argument> encode, Argument argument) {
    if (!stores(out)) {
        uint8_t head[kMaxHead];
        take(out, encode(argument, head, sizeof(head)));
        return;
    }
    const size_t size = encode(argument, bytesOf(out) + out.uUsed, room(out));
    out.uUsed += size;
    if (size == 0) {
        close(out);
    }
}

// Appends to a buffer that is not null and has room for any head.
template <typename Argument>
void appendFittingHead(QCBOROutBuf& out, HeadEncoder<Argument> encode, Argument argument) {
    out.uUsed += encode(argument, bytesOf(out) + out.uUsed, kMaxHead);
}

void appendContent(QCBOREncodeContext& context, UsefulBufC content) {
    QCBOROutBuf& out = context.OutBuf;
    if (content.len > 0 && !failed(context) && take(out, content.len) && stores(out)) {
        memcpy(bytesOf(out) + out.uUsed - content.len, content.ptr, content.len);
    }
}

// False when the item may not be written.
bool countItem(QCBOREncodeContext& context) {
    QCBOREncodeLevel& level = innermost(context);
    if (failed(context)) {
        return false;
    }
    if (level.uCount == kMaxItems) {
        context.uError = QCBOR_ERR_ARRAY_TOO_LONG;
        return false;
    }
    ++level.uCount;
    return true;
}

template <typename Argument>
void addItem(QCBOREncodeContext& context, HeadEncoder<Argument> encode, Argument argument) {
    if (countItem(context)) {
        appendHead(context.OutBuf, encode, argument);
    }
}

HeadEncoder<uint64_t> integerEncoder(int64_t value) {
    return value < 0 ? cbor_encode_negint : cbor_encode_uint;
}

// A negative number's argument is -1 - value: all bits inverted.
uint64_t integerArgument(int64_t value) {
    return static_cast<uint64_t>(value < 0 ? ~value : value);
}

void addInteger(QCBOREncodeContext& context, int64_t value) {
    addItem(context, integerEncoder(value), integerArgument(value));
}

// False, with the error set, for a string that no buffer could hold.
bool acceptsLength(QCBOREncodeContext& context, size_t length) {
    if (length < kMaxBuffer) {
        return true;
    }
    context.uError = QCBOR_ERR_BUFFER_TOO_LARGE;
    return false;
}

void addTextLabel(QCBOREncodeContext& context, const char* label) {
    const UsefulBufC text = SZToUsefulBufC(label);
    if (acceptsLength(context, text.len)) {
        addItem(context, cbor_encode_string_start, text.len);
        appendContent(context, text);
    }
}

// Both labels are written where both are given.
void addLabelAndTag(QCBOREncodeContext& context, const char* textLabel, int64_t label,
                    uint64_t tag) {
    if (label != QCBOR_NO_INT_LABEL) {
        addInteger(context, label);
    }
    if (textLabel != nullptr) {
        addTextLabel(context, textLabel);
    }
    if (tag != CBOR_TAG_NONE && !failed(context)) {
        appendHead(context.OutBuf, cbor_encode_tag, tag);
    }
}

// Whether two heads can be written and counted without checking either.
bool takesTwoHeads(const QCBOREncodeContext& context) {
    const QCBOROutBuf& out = context.OutBuf;
    return !failed(context) && stores(out) && room(out) >= 2 * kMaxHead &&
           context.Levels[context.uLevel].uCount <= kMaxItems - 2;
}

template <typename Argument>
void addLabelledItem(QCBOREncodeContext& context, const char* textLabel, int64_t label,
                     uint64_t tag, HeadEncoder<Argument> encode, Argument argument) {
    if (textLabel != nullptr || label == QCBOR_NO_INT_LABEL || tag != CBOR_TAG_NONE ||
        !takesTwoHeads(context)) {
        addLabelAndTag(context, textLabel, label, tag);
        addItem(context, encode, argument);
        return;
    }
    // The usual entry.
    appendFittingHead(context.OutBuf, integerEncoder(label), integerArgument(label));
    appendFittingHead(context.OutBuf, encode, argument);
    innermost(context).uCount = static_cast<uint16_t>(innermost(context).uCount + 2);
}

void addLabelledString(QCBOREncodeContext& context, const char* textLabel, int64_t label,
                       uint64_t tag, HeadEncoder<size_t> encode, UsefulBufC string) {
    if (acceptsLength(context, string.len)) {
        addLabelledItem(context, textLabel, label, tag, encode, string.len);
        appendContent(context, string);
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
    take(context.OutBuf, kKeptFree);
    innermost(context) = {static_cast<uint32_t>(context.OutBuf.uUsed), 0, majorType, wrap};
}

size_t encodeContainerHead(const QCBOREncodeLevel& level, uint8_t* head, size_t size) {
    if (level.uMajorType == CBOR_MAJOR_TYPE_MAP) {
        return cbor_encode_map_start(level.uCount / 2, head, size);
    }
    return cbor_encode_array_start(level.uCount, head, size);
}

// Writes the head of a container, and before it that of the byte string it is wrapped in, where
// open() kept a byte free. Only heads of more bytes than that move the content.
void fillInHeads(QCBOROutBuf& out, const QCBOREncodeLevel& level) {
    const size_t contentSize = out.uUsed - level.uStart;
    uint8_t heads[2 * kMaxHead];
    size_t size = 0;
    if (level.bBstrWrap) {
        const size_t wrapped = encodeContainerHead(level, heads, kMaxHead) + contentSize;
        size = cbor_encode_bytestring_start(wrapped, heads, kMaxHead);
    }
    size += encodeContainerHead(level, heads + size, kMaxHead);
    if (out.bFull || !take(out, size - kKeptFree) || !stores(out)) {
        return;
    }
    uint8_t* const start = bytesOf(out) + level.uStart - kKeptFree;
    if (size > kKeptFree) {
        memmove(start + size, start + kKeptFree, contentSize);
    }
    for (size_t i = 0; i < size; ++i) {
        start[i] = heads[i];
    }
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
    if (countItem(*pCtx)) {
        fillInHeads(pCtx->OutBuf, closed);
    }
}

void QCBOREncode_AddUInt64_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                             uint64_t uTag, uint64_t uNum) {
    addLabelledItem(*pCtx, szLabel, nLabel, uTag, cbor_encode_uint, uNum);
}

void QCBOREncode_AddInt64_3(QCBOREncodeContext* pCtx, const char* szLabel, int64_t nLabel,
                            uint64_t uTag, int64_t nNum) {
    addLabelledItem(*pCtx, szLabel, nLabel, uTag, integerEncoder(nNum), integerArgument(nNum));
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
    addLabelledItem(*pCtx, szLabel, nLabel, uTag, cbor_encode_ctrl, uSimple);
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
