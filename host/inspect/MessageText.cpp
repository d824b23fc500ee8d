#include <algorithm>
#include <cstdio>

#include "inspect/Message.h"

namespace lumo::inspect {

const Field* Message::find(Meaning meaning) const {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const Field& field) { return field.meaning == meaning; });
    return found == fields.end() ? nullptr : &*found;
}

std::string toHex(ByteView bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

std::string toText(const Message& message, const std::string& indent) {
    std::string text;
    for (const Field& field : message.fields) {
        char place[40];
        std::snprintf(place, sizeof(place), "%6zu %6zu  ", field.offset, field.size);
        text.append(indent).append(place).append(2 * field.depth, ' ');
        text.append(field.name).append(": ").append(field.value);
        if (field.isStale()) text += " (stale)";
        text += '\n';
    }
    for (const std::string& problem : message.problems) {
        text.append(indent).append("! ").append(problem).append("\n");
    }
    return text;
}

}  // namespace lumo::inspect
