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

std::string number(double value) {
    std::ostringstream out;
    out.precision(17);
    out << value;
    return out.str();
}

std::string value(const QCBORItem& item) {
    const uint8_t type = item.uDataType;
    if (type == QCBOR_TYPE_INT64) return std::to_string(item.val.int64);
    if (type == QCBOR_TYPE_UINT64) return std::to_string(item.val.uint64) + 'u';
    if (type == QCBOR_TYPE_ARRAY) return '[' + std::to_string(item.val.uCount);
    if (type == QCBOR_TYPE_MAP) return '{' + std::to_string(item.val.uCount);
    if (type == QCBOR_TYPE_BYTE_STRING) return bytes(item.val.string);
    if (type == QCBOR_TYPE_TEXT_STRING) return text(item.val.string);
    if (type == QCBOR_TYPE_POSBIGNUM) return "big" + bytes(item.val.bigNum);
    if (type == QCBOR_TYPE_NEGBIGNUM) return "-big" + bytes(item.val.bigNum);
    if (type == QCBOR_TYPE_DATE_STRING) return "date" + text(item.val.dateString);
    if (type == QCBOR_TYPE_UKNOWN_SIMPLE) return "simple" + std::to_string(item.val.uSimple);
    if (type == QCBOR_TYPE_DOUBLE) return number(item.val.dfnum) + 'f';
    if (type != QCBOR_TYPE_DATE_EPOCH) return "type" + std::to_string(type);
    const auto& date = item.val.epochDate;
    return "epoch" + std::to_string(date.nSeconds) + '+' + number(date.fSecondsFraction);
}

// 0xff is what the item is filled with beforehand: the decoder wrote no label.
std::string label(const QCBORItem& item) {
    if (item.uLabelType == 0xff) return "";
    if (item.uLabelType == QCBOR_TYPE_INT64) return std::to_string(item.label.int64) + '=';
    if (item.uLabelType == QCBOR_TYPE_UINT64) return std::to_string(item.label.uint64) + "u=";
    if (item.uLabelType == QCBOR_TYPE_TEXT_STRING) return text(item.label.string) + '=';
    return bytes(item.label.string) + '=';
}

std::string tags(const QCBORItem& item) {
    if (item.uTag == 0 && item.uTagBits == 0) return "";
    std::ostringstream out;
    out << '#' << item.uTag << '/' << std::hex << item.uTagBits << ' ';
    return out.str();
}

std::string describe(const QCBORItem& item) {
    return std::to_string(item.uNestingLevel) + ':' + label(item) + tags(item) + value(item);
}

}  // namespace

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
