#include "CborSteps.h"

#include <CborHelpers.h>

#include <cstring>
#include <stdexcept>
#include <type_traits>

#include "Values.h"

namespace lumo::test {
namespace {

// A step's name and, in brackets, its label.
std::pair<std::string, std::string> parted(const std::string& step) {
    const size_t open = step.find('(');
    if (open == std::string::npos) return {step, ""};
    return {step.substr(0, open), step.substr(open + 1, step.size() - open - 2)};
}

int64_t number(const std::string& label) {
    return std::stoll(label, nullptr, 0);
}

template <typename Out, typename Plain, typename ByNumber, typename ByText, typename... Type>
std::string get(CborReader* reader, const std::string& label, Plain plain, ByNumber by_number,
                ByText by_text, Type... type) {
    Out out, untouched;
    std::memset(&out, 0x55, sizeof(out));
    std::memset(&untouched, 0x55, sizeof(out));
    if (label.empty()) {
        plain(reader, type..., &out);
    } else if (label[0] == '.') {
        by_text(reader, type..., label.c_str() + 1, &out);
    } else {
        by_number(reader, type..., static_cast<uint64_t>(number(label)), &out);
    }
    if (std::memcmp(&out, &untouched, sizeof(out)) == 0) return "untouched";
    if constexpr (std::is_same_v<Out, keymaster_blob_t>) {
        return show(out.data, out.data_length);
    } else {
        return std::to_string(out);
    }
}

#define FORMS(Name) reader, label, Name, Name##FromMapWithUint64Label, Name##FromMapWithStringLabel

std::string readStep(CborReader* reader, const std::string& name, const std::string& label) {
    const bool labelled = !label.empty();
    if (name == "map" || name == "array") {
        const bool map = name == "map";
        const auto plain = map ? CR_MAP_ENTER : CR_ARRAY_ENTER;
        const auto with_label = map ? CR_MAP_LABEL_ENTER : CR_ARRAY_LABEL_ENTER;
        const int entered = labelled ? with_label(reader, number(label)) : plain(reader);
        if (entered == 0) return "not entered";
        return "entered, type " + std::to_string(reader->item.uDataType) + " of " +
               std::to_string(reader->item.val.uCount);
    }
    if (name == "bool") return get<uint8_t>(FORMS(CRGetBool));
    if (name == "uint64") return get<uint64_t>(FORMS(CRGetUint64));
    if (name == "int64") return get<int64_t>(FORMS(CRGetInt64));
    if (name == "uint32") return get<uint32_t>(FORMS(CRGetUint32));
    if (name == "int32") return get<int32_t>(FORMS(CRGetInt32));
    if (name == "uint8") return get<uint8_t>(FORMS(CRGetUint8));
    const uint8_t type = name == "text" ? QCBOR_TYPE_TEXT_STRING : QCBOR_TYPE_BYTE_STRING;
    return get<keymaster_blob_t>(FORMS(CRGetBytesOrString), type);
}

#undef FORMS

}  // namespace

std::string readCbor(const Bytes& message, const std::string& steps) {
    QCBORDecodeContext decoder;
    QCBORDecode_Init(&decoder, {message.data(), message.size()}, QCBOR_DECODE_MODE_NORMAL);
    CborReader reader = {&decoder, {}, 0};
    std::string text;
    for (const std::string& step : split(steps, ',')) {
        const auto [name, label] = parted(step);
        text += (text.empty() ? "" : "; ") + readStep(&reader, name, label);
        if (reader.error != 0) text += ", error " + std::to_string(reader.error);
    }
    return text;
}

std::string writeCbor(const std::string& steps) {
    uint8_t buffer[64];
    QCBOREncodeContext encoder;
    QCBOREncode_Init(&encoder, buffer, sizeof(buffer));
    int results = 1;
    for (const std::string& step : split(steps, ',')) {
        const auto [name, label] = parted(step);
        if (name == "close") {
            QCBOREncode_CloseArray(&encoder);
        } else if (label.empty()) {
            results &= (name == "map" ? CW_MAP_ENTER : CW_ARRAY_ENTER)(&encoder);
        } else {
            results &= (name == "map" ? CW_MAP_LABEL_ENTER : CW_ARRAY_LABEL_ENTER)(&encoder,
                                                                                   number(label));
        }
    }
    size_t length = 0;
    const int error = QCBOREncode_Finish(&encoder, &length);
    return std::to_string(results) + ", error " + std::to_string(error) + ", " +
           show(buffer, length);
}

}  // namespace lumo::test
