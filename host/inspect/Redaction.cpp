#include "inspect/Redaction.h"

#include <algorithm>

namespace lumo::inspect {
namespace {

bool isSecret(const Field& field, ByteView bytes, std::optional<uint32_t> purpose) {
    const bool zeros =
        std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; });
    switch (field.meaning) {
        case Meaning::kKeyData:
        case Meaning::kMaskingKey:
        case Meaning::kApplication:
            return true;
        case Meaning::kInput:
            return purpose != uint32_t{KM_PURPOSE_DECRYPT};
        case Meaning::kOutput:
            return !purpose || *purpose == KM_PURPOSE_DECRYPT;
        case Meaning::kTokenMac:
        case Meaning::kUnread:
        case Meaning::kStale:
            return !zeros;
        default:
            return false;
    }
}

}  // namespace

std::vector<Hidden> partsToHide(const Message& message, ByteView bytes,
                                std::optional<uint32_t> purpose) {
    std::vector<Hidden> parts;
    for (const Field& field : message.fields) {
        if (field.size == 0) continue;
        if (!isSecret(field, bytes.sub(field.offset, field.size), purpose)) continue;
        parts.push_back({field.offset, field.size, field.name});
    }
    return parts;
}

void hide(Bytes& bytes, const std::vector<Hidden>& parts) {
    for (const Hidden& part : parts) {
        const size_t end = std::min(bytes.size(), part.offset + part.size);
        for (size_t i = part.offset; i < end; ++i) bytes[i] = 0;
    }
}

}  // namespace lumo::inspect
