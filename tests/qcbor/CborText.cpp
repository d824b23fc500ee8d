#include "CborText.h"

#include <memory>
#include <sstream>

namespace {

std::string describeString(UsefulBufC string, bool text) {
    if (text) {
        return '"' + std::string(static_cast<const char*>(string.ptr), string.len) + '"';
    }
    return "h'" + toHex(string.ptr, string.len) + "'";
}

std::string describeDouble(double value) {
    std::ostringstream out;
    out.precision(17);
    out << value << 'f';
    return out.str();
}

std::string describeValue(const QCBORItem& item) {
    switch (item.uDataType) {
        case QCBOR_TYPE_INT64:
            return std::to_string(item.val.int64);
        case QCBOR_TYPE_UINT64:
            return std::to_string(item.val.uint64) + 'u';
        case QCBOR_TYPE_ARRAY:
            return '[' + std::to_string(item.val.uCount);
        case QCBOR_TYPE_MAP:
            return '{' + std::to_string(item.val.uCount);
        case QCBOR_TYPE_BYTE_STRING:
        case QCBOR_TYPE_TEXT_STRING:
            return describeString(item.val.string, item.uDataType == QCBOR_TYPE_TEXT_STRING);
        case QCBOR_TYPE_POSBIGNUM:
            return "big" + describeString(item.val.bigNum, false);
        case QCBOR_TYPE_NEGBIGNUM:
            return "-big" + describeString(item.val.bigNum, false);
        case QCBOR_TYPE_DATE_STRING:
            return "date" + describeString(item.val.dateString, true);
        case QCBOR_TYPE_DATE_EPOCH:
            return "epoch" + std::to_string(item.val.epochDate.nSeconds) + '+' +
                   describeDouble(item.val.epochDate.fSecondsFraction);
        case QCBOR_TYPE_UKNOWN_SIMPLE:
            return "simple" + std::to_string(item.val.uSimple);
        case QCBOR_TYPE_DOUBLE:
            return describeDouble(item.val.dfnum);
        default:
            return "type" + std::to_string(item.uDataType);
    }
}

// 0xff is what the item is filled with beforehand: the decoder wrote no label.
std::string describeLabel(const QCBORItem& item) {
    switch (item.uLabelType) {
        case 0xff:
            return "";
        case QCBOR_TYPE_INT64:
            return std::to_string(item.label.int64) + '=';
        case QCBOR_TYPE_UINT64:
            return std::to_string(item.label.uint64) + "u=";
        default:
            return describeString(item.label.string, item.uLabelType == QCBOR_TYPE_TEXT_STRING) +
                   '=';
    }
}

std::string describe(const QCBORItem& item) {
    std::ostringstream out;
    out << unsigned{item.uNestingLevel} << ':' << describeLabel(item);
    if (item.uTag != 0 || item.uTagBits != 0) {
        out << '#' << item.uTag << '/' << std::hex << item.uTagBits << ' ';
    }
    return out.str() + describeValue(item);
}

}  // namespace

Bytes fromHex(const std::string& hex) {
    Bytes bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

std::string toHex(const void* data, size_t size) {
    static const char* const kDigits = "0123456789abcdef";
    const auto* bytes = static_cast<const uint8_t*>(data);
    std::string hex;
    for (size_t i = 0; i < size; ++i) {
        hex += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 0xf]};
    }
    return hex;
}

std::string encoded(Encode encode, size_t capacity) {
    const auto buffer = std::make_unique<uint8_t[]>(capacity);
    QCBOREncodeContext context;
    QCBOREncode_Init(&context, buffer.get(), capacity);
    encode(&context);
    size_t size = 0;
    const int error = QCBOREncode_Finish(&context, &size);
    return error != QCBOR_SUCCESS ? '!' + std::to_string(error) : toHex(buffer.get(), size);
}

std::string decoded(const Bytes& input, int8_t mode) {
    const auto block = std::make_unique<uint8_t[]>(input.size());
    std::copy(input.begin(), input.end(), block.get());
    QCBORDecodeContext context;
    QCBORDecode_Init(&context, {block.get(), input.size()}, mode);
    std::string text;
    for (size_t calls = 0; calls <= input.size(); ++calls) {
        QCBORItem item;
        memset(&item, 0xff, sizeof(item));
        const int error = QCBORDecode_GetNext(&context, &item);
        if (error == QCBOR_ERR_HIT_END) {
            const int result = QCBORDecode_Finish(&context);
            return text + (result != QCBOR_SUCCESS ? "finish!" + std::to_string(result) : "");
        }
        text += (error != QCBOR_SUCCESS ? '!' + std::to_string(error) : describe(item)) + ' ';
    }
    return "more calls than bytes";
}
