#include "CborText.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

namespace {

std::string text(UsefulBufC string) {
    return '"' + std::string(static_cast<const char*>(string.ptr), string.len) + '"';
}

std::string bytes(UsefulBufC string) {
    return "h'" + toHex(string.ptr, string.len) + '\'';
}

void writeValue(std::ostream& out, const QCBORItem& item) {
    switch (item.uDataType) {
        case QCBOR_TYPE_INT64:
            out << item.val.int64;
            return;
        case QCBOR_TYPE_UINT64:
            out << item.val.uint64 << 'u';
            return;
        case QCBOR_TYPE_ARRAY:
        case QCBOR_TYPE_MAP:
            out << (item.uDataType == QCBOR_TYPE_MAP ? '{' : '[') << item.val.uCount;
            return;
        case QCBOR_TYPE_BYTE_STRING:
            out << bytes(item.val.string);
            return;
        case QCBOR_TYPE_TEXT_STRING:
            out << text(item.val.string);
            return;
        case QCBOR_TYPE_POSBIGNUM:
        case QCBOR_TYPE_NEGBIGNUM:
            out << (item.uDataType == QCBOR_TYPE_NEGBIGNUM ? "-big" : "big")
                << bytes(item.val.bigNum);
            return;
        case QCBOR_TYPE_DATE_STRING:
            out << "date" << text(item.val.dateString);
            return;
        case QCBOR_TYPE_DATE_EPOCH:
            out << "epoch" << item.val.epochDate.nSeconds << '+'
                << item.val.epochDate.fSecondsFraction;
            return;
        case QCBOR_TYPE_UKNOWN_SIMPLE:
            out << "simple" << unsigned{item.val.uSimple};
            return;
        case QCBOR_TYPE_DOUBLE:
            out << item.val.dfnum << 'f';
            return;
        default:
            out << "type" << unsigned{item.uDataType};
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
        case QCBOR_TYPE_TEXT_STRING:
            return text(item.label.string) + '=';
        default:
            return bytes(item.label.string) + '=';
    }
}

std::string describe(const QCBORItem& item) {
    std::ostringstream out;
    out.precision(17);
    out << unsigned{item.uNestingLevel} << ':' << describeLabel(item);
    if (item.uTag != 0 || item.uTagBits != 0) {
        out << '#' << item.uTag << '/' << std::hex << item.uTagBits << std::dec << ' ';
    }
    writeValue(out, item);
    return out.str();
}

}  // namespace

Bytes fromHex(const std::string& hex) {
    Bytes bytes;
    for (size_t i = 0; i < hex.size(); i += 2) {
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
            EXPECT_EQ(QCBORDecode_GetNext(&context, &item), QCBOR_ERR_HIT_END);
            const int result = QCBORDecode_Finish(&context);
            return text + (result != QCBOR_SUCCESS ? "finish!" + std::to_string(result) : "");
        }
        text += (error != QCBOR_SUCCESS ? '!' + std::to_string(error) : describe(item)) + ' ';
    }
    return "more calls than bytes";
}
