#include <cbor.h>
#include <qcbor.h>

#include <algorithm>

namespace {

constexpr uint8_t kMinLongSimple = 32;
constexpr uint64_t kFirstUnflaggedTag = 63;

// ---- One head, as libcbor reports it ----

// Receives what libcbor's callbacks report.
struct Head {
    QCBORItem& item;
    uint64_t tag = 0;
    int error = QCBOR_SUCCESS;
};

Head& headOf(void* context) {
    return *static_cast<Head*>(context);
}

void onUnsigned(void* context, uint64_t value) {
    QCBORItem& item = headOf(context).item;
    if (value > INT64_MAX) {
        item.uDataType = QCBOR_TYPE_UINT64;
        item.val.uint64 = value;
        return;
    }
    item.uDataType = QCBOR_TYPE_INT64;
    item.val.int64 = static_cast<int64_t>(value);
}

// The number is -1 - magnitude.
void onNegative(void* context, uint64_t magnitude) {
    Head& head = headOf(context);
    if (magnitude > INT64_MAX) {
        head.error = QCBOR_ERR_INT_OVERFLOW;
        return;
    }
    head.item.uDataType = QCBOR_TYPE_INT64;
    head.item.val.int64 = -1 - static_cast<int64_t>(magnitude);
}

template <uint8_t kType>
void onString(void* context, cbor_data bytes, size_t size) {
    QCBORItem& item = headOf(context).item;
    item.uDataType = kType;
    item.val.string = UsefulBufC_Make(bytes, size);
}

template <uint8_t kType>
void onContainer(void* context, size_t count) {
    Head& head = headOf(context);
    if (count > QCBOR_MAX_ITEMS_IN_ARRAY) {
        head.error = QCBOR_ERR_ARRAY_TOO_LONG;
        return;
    }
    head.item.uDataType = kType;
    head.item.val.uCount = static_cast<uint16_t>(count);
}

void onTag(void* context, uint64_t tag) {
    headOf(context).item.uDataType = QCBOR_TYPE_OPTTAG;
    headOf(context).tag = tag;
}

void onDouble(void* context, double value) {
    headOf(context).item.uDataType = QCBOR_TYPE_DOUBLE;
    headOf(context).item.val.dfnum = value;
}

void onFloat(void* context, float value) {
    onDouble(context, value);
}

void onBool(void* context, bool value) {
    headOf(context).item.uDataType = value ? QCBOR_TYPE_TRUE : QCBOR_TYPE_FALSE;
}

template <uint8_t kType>
void onSimple(void* context) {
    headOf(context).item.uDataType = kType;
}

template <typename Narrow, void (*onWide)(void*, uint64_t)>
void widened(void* context, Narrow value) {
    onWide(context, value);
}

// Indefinite lengths and breaks: only their first byte is consumed.
void onUnsupported(void* context) {
    headOf(context).error = QCBOR_ERR_UNSUPPORTED;
}

// In the order of libcbor's structure.
constexpr cbor_callbacks kCallbacks = {
    widened<uint8_t, onUnsigned>,
    widened<uint16_t, onUnsigned>,
    widened<uint32_t, onUnsigned>,
    onUnsigned,
    onNegative,
    widened<uint32_t, onNegative>,
    widened<uint16_t, onNegative>,
    widened<uint8_t, onNegative>,
    onUnsupported,
    onString<QCBOR_TYPE_BYTE_STRING>,
    onString<QCBOR_TYPE_TEXT_STRING>,
    onUnsupported,
    onUnsupported,
    onContainer<QCBOR_TYPE_ARRAY>,
    onUnsupported,
    onContainer<QCBOR_TYPE_MAP>,
    onTag,
    onFloat,
    onFloat,
    onDouble,
    onSimple<QCBOR_TYPE_UNDEF>,
    onSimple<QCBOR_TYPE_NULL>,
    onBool,
    onUnsupported,
};

// ---- Reading one head ----

const uint8_t* unread(const QCBORDecodeContext& context) {
    return static_cast<const uint8_t*>(context.InBuf.ptr) + context.uPosition;
}

size_t unreadSize(const QCBORDecodeContext& context) {
    return context.InBuf.len - context.uPosition;
}

int hitEnd(QCBORDecodeContext& context) {
    context.bHitEnd = true;
    return QCBOR_ERR_HIT_END;
}

size_t headSize(uint8_t info) {
    return info < LEN_IS_ONE_BYTE ? 1 : size_t{1} + (size_t{1} << (info - LEN_IS_ONE_BYTE));
}

bool isUnnamedSimple(uint8_t majorType, uint8_t info) {
    return majorType == CBOR_MAJOR_TYPE_SIMPLE &&
           (info < CBOR_SIMPLEV_FALSE || info == CBOR_SIMPLEV_ONEBYTE);
}

int readUnnamedSimple(QCBORDecodeContext& context, uint8_t info, QCBORItem& item) {
    const uint8_t value = info == CBOR_SIMPLEV_ONEBYTE ? unread(context)[1] : info;
    context.uPosition += headSize(info);
    if (info == CBOR_SIMPLEV_ONEBYTE && value < kMinLongSimple) {
        return QCBOR_ERR_INVALID_CBOR;
    }
    item.uDataType = QCBOR_TYPE_UKNOWN_SIMPLE;
    item.val.uSimple = value;
    return QCBOR_SUCCESS;
}

// Reads a head that libcbor did not finish: the simple values that have no name, which it does not
// know, reserved heads, and what the end of the input cuts off. A string's head is consumed where
// only content is missing.
[[gnu::noinline]] int readUnfinished(QCBORDecodeContext& context, QCBORItem& item) {
    if (unreadSize(context) == 0) {
        return QCBOR_ERR_HIT_END;
    }
    const auto majorType = static_cast<uint8_t>(*unread(context) >> 5);
    const auto info = static_cast<uint8_t>(*unread(context) & 0x1f);
    if (info >= ADDINFO_RESERVED1) {
        ++context.uPosition;
        return QCBOR_ERR_UNSUPPORTED;
    }
    const size_t size = headSize(info);
    if (size > unreadSize(context)) {
        return hitEnd(context);
    }
    if (isUnnamedSimple(majorType, info)) {
        return readUnnamedSimple(context, info, item);
    }
    context.uPosition += size;
    return hitEnd(context);
}

// Where size_t has 32 bits libcbor truncates longer lengths. No input holds that much content, so
// the head is consumed and refused. Returns QCBOR_SUCCESS for every other head.
int refuseOverlong(QCBORDecodeContext& context) {
    constexpr size_t kHeadSize = 9;
    if (sizeof(size_t) == sizeof(uint64_t) || unreadSize(context) < kHeadSize) {
        return QCBOR_SUCCESS;
    }
    const uint8_t* const head = unread(context);
    const int majorType = *head >> 5;
    const bool counts =
        majorType >= CBOR_MAJOR_TYPE_BYTE_STRING && majorType <= CBOR_MAJOR_TYPE_MAP;
    if (!counts || (*head & 0x1f) != LEN_IS_EIGHT_BYTES ||
        std::all_of(head + 1, head + 5, [](uint8_t byte) { return byte == 0; })) {
        return QCBOR_SUCCESS;
    }
    context.uPosition += kHeadSize;
    return majorType <= CBOR_MAJOR_TYPE_TEXT_STRING ? hitEnd(context) : QCBOR_ERR_ARRAY_TOO_LONG;
}

// Reads one head, with the content where it is a string's. A tag comes as QCBOR_TYPE_OPTTAG.
int readHead(QCBORDecodeContext& context, Head& head) {
    if (context.bHitEnd) {
        return QCBOR_ERR_HIT_END;
    }
    if (const int error = refuseOverlong(context); error != QCBOR_SUCCESS) {
        return error;
    }
    const cbor_decoder_result result =
        cbor_stream_decode(unread(context), unreadSize(context), &kCallbacks, &head);
    if (result.status != CBOR_DECODER_FINISHED) {
        return readUnfinished(context, head.item);
    }
    context.uPosition += result.read;
    return head.error;
}

// ---- Tags ----

uint64_t tagBit(uint64_t tag) {
    if (tag == CBOR_TAG_CBOR_MAGIC) {
        return QCBOR_TAGFLAG_CBOR_MAGIC;
    }
    return tag < kFirstUnflaggedTag ? uint64_t{1} << tag : 0;
}

int makeEpochDateOfDouble(QCBORItem& item) {
    // 2^63 is the first double past the range; a NaN fails either comparison.
    constexpr double kRange = 9223372036854775808.0;
    const double seconds = item.val.dfnum;
    if (!(seconds >= -kRange && seconds < kRange)) {
        return QCBOR_ERR_DATE_OVERFLOW;
    }
    const auto whole = static_cast<int64_t>(seconds);
    item.val.epochDate.nSeconds = whole;
    item.val.epochDate.fSecondsFraction = seconds - static_cast<double>(whole);
    return QCBOR_SUCCESS;
}

int makeEpochDate(QCBORItem& item) {
    const uint8_t type = item.uDataType;
    item.uDataType = QCBOR_TYPE_DATE_EPOCH;
    if (type == QCBOR_TYPE_INT64) {
        const int64_t seconds = item.val.int64;
        item.val.epochDate.nSeconds = seconds;
        item.val.epochDate.fSecondsFraction = 0;
        return QCBOR_SUCCESS;
    }
    if (type == QCBOR_TYPE_DOUBLE) {
        return makeEpochDateOfDouble(item);
    }
    return type == QCBOR_TYPE_UINT64 ? QCBOR_ERR_DATE_OVERFLOW : QCBOR_ERR_BAD_OPT_TAG;
}

// A string with a meaning; `val` holds it in the same place under either name.
int retype(QCBORItem& item, uint8_t from, uint8_t to) {
    if (item.uDataType != from) {
        return QCBOR_ERR_BAD_OPT_TAG;
    }
    item.uDataType = to;
    return QCBOR_SUCCESS;
}

// Dates and big numbers become types of their own; every other tag is only reported.
int applyTags(QCBORItem& item, uint64_t tagBits) {
    constexpr uint64_t kTyped = QCBOR_TAGFLAG_DATE_STRING | QCBOR_TAGFLAG_DATE_EPOCH |
                                QCBOR_TAGFLAG_POS_BIGNUM | QCBOR_TAGFLAG_NEG_BIGNUM;
    switch (tagBits & kTyped) {
        case 0:
            return QCBOR_SUCCESS;
        case QCBOR_TAGFLAG_DATE_STRING:
            return retype(item, QCBOR_TYPE_TEXT_STRING, QCBOR_TYPE_DATE_STRING);
        case QCBOR_TAGFLAG_DATE_EPOCH:
            return makeEpochDate(item);
        case QCBOR_TAGFLAG_POS_BIGNUM:
            return retype(item, QCBOR_TYPE_BYTE_STRING, QCBOR_TYPE_POSBIGNUM);
        case QCBOR_TAGFLAG_NEG_BIGNUM:
            return retype(item, QCBOR_TYPE_BYTE_STRING, QCBOR_TYPE_NEGBIGNUM);
        default:
            return QCBOR_ERR_BAD_OPT_TAG;
    }
}

// Reads what follows a tag: more tags, then the item that they belong to.
[[gnu::noinline]] int readTags(QCBORDecodeContext& context, Head& head) {
    QCBORItem& item = head.item;
    while (item.uDataType == QCBOR_TYPE_OPTTAG) {
        item.uTag = head.tag;
        item.uTagBits |= tagBit(head.tag);
        const int error = readHead(context, head);
        if (error != QCBOR_SUCCESS) {
            return error;
        }
    }
    return applyTags(item, item.uTagBits);
}

// Reads a head with all tags before it.
int readTagged(QCBORDecodeContext& context, QCBORItem& item) {
    Head head{item};
    const int error = readHead(context, head);
    if (error != QCBOR_SUCCESS) {
        return error;
    }
    item.uTag = 0;
    item.uTagBits = 0;
    return item.uDataType == QCBOR_TYPE_OPTTAG ? readTags(context, head) : QCBOR_SUCCESS;
}

// ---- Labels and levels ----

int applyLabel(const QCBORItem& label, uint8_t mode, QCBORItem& item) {
    if (mode == QCBOR_DECODE_MODE_MAP_STRINGS_ONLY && label.uDataType != QCBOR_TYPE_TEXT_STRING) {
        return QCBOR_ERR_MAP_LABEL_TYPE;
    }
    switch (label.uDataType) {
        case QCBOR_TYPE_INT64:
            item.label.int64 = label.val.int64;
            break;
        case QCBOR_TYPE_UINT64:
            item.label.uint64 = label.val.uint64;
            break;
        case QCBOR_TYPE_BYTE_STRING:
        case QCBOR_TYPE_TEXT_STRING:
            item.label.string = label.val.string;
            break;
        default:
            return QCBOR_ERR_MAP_LABEL_TYPE;
    }
    item.uLabelType = label.uDataType;
    return QCBOR_SUCCESS;
}

// Reads an entry of the innermost container: an item, or label and value. A label of a wrong type
// is reported after the value's head was read.
int readEntry(QCBORDecodeContext& context, QCBORItem& item) {
    if (!context.Levels[context.uLevel].bMap) {
        return readTagged(context, item);
    }
    QCBORItem label;
    const int labelError = readTagged(context, label);
    if (labelError != QCBOR_SUCCESS) {
        return labelError;
    }
    const int error = readTagged(context, item);
    return error != QCBOR_SUCCESS ? error : applyLabel(label, context.uDecodeMode, item);
}

// How many entries the item opens a level for; 0 for an empty container as for a plain item.
uint32_t entriesOf(const QCBORDecodeContext& context, const QCBORItem& item) {
    if (item.uDataType != QCBOR_TYPE_ARRAY && item.uDataType != QCBOR_TYPE_MAP) {
        return 0;
    }
    const uint32_t count = item.val.uCount;
    const bool labelsAreItems =
        item.uDataType == QCBOR_TYPE_MAP && context.uDecodeMode == QCBOR_DECODE_MODE_MAP_AS_ARRAY;
    return labelsAreItems ? 2 * count : count;
}

// Counts the item in its parent, then enters it if it has content; if not, leaves the levels whose
// last entry it was.
void moveOn(QCBORDecodeContext& context, const QCBORItem& item, uint32_t entries) {
    if (context.uLevel > 0) {
        --context.Levels[context.uLevel].uRemaining;
    }
    if (entries > 0) {
        const bool map = item.uDataType == QCBOR_TYPE_MAP &&
                         context.uDecodeMode != QCBOR_DECODE_MODE_MAP_AS_ARRAY;
        ++context.uLevel;
        context.Levels[context.uLevel] = {entries, map};
    }
    while (context.uLevel > 0 && context.Levels[context.uLevel].uRemaining == 0) {
        --context.uLevel;
    }
}

}  // namespace

void QCBORDecode_Init(QCBORDecodeContext* pCtx, UsefulBufC Encoded, int8_t nMode) {
    *pCtx = {};
    pCtx->InBuf = Encoded;
    pCtx->uDecodeMode = static_cast<uint8_t>(nMode);
}

int QCBORDecode_GetNext(QCBORDecodeContext* pCtx, QCBORItem* pDecodedItem) {
    const int error = readEntry(*pCtx, *pDecodedItem);
    if (error != QCBOR_SUCCESS) {
        return error;
    }
    const uint32_t entries = entriesOf(*pCtx, *pDecodedItem);
    if (entries > 0 && pCtx->uLevel == QCBOR_MAX_ARRAY_NESTING) {
        return QCBOR_ERR_ARRAY_NESTING_TOO_DEEP;
    }
    pDecodedItem->uNestingLevel = pCtx->uLevel;
    moveOn(*pCtx, *pDecodedItem, entries);
    return QCBOR_SUCCESS;
}

int QCBORDecode_Finish(QCBORDecodeContext* pCtx) {
    return unreadSize(*pCtx) > 0 ? QCBOR_ERR_EXTRA_BYTES : QCBOR_SUCCESS;
}
