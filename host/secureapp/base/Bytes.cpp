#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

uint64_t loadLittle(const uint8_t* from, size_t width) {
    uint64_t value = 0;
    for (size_t i = width; i-- > 0;) value = value << 8 | from[i];
    return value;
}

uint64_t loadBig(const uint8_t* from, size_t width) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) value = value << 8 | from[i];
    return value;
}

void storeLittle(uint8_t* to, uint64_t value, size_t width) {
    for (size_t i = 0; i < width; ++i) to[i] = static_cast<uint8_t>(value >> (8 * i));
}

void appendLittle(Bytes& to, uint64_t value, size_t width) {
    for (size_t i = 0; i < width; ++i) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void appendBig(Bytes& to, uint64_t value, size_t width) {
    for (size_t i = width; i-- > 0;) to.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

}  // namespace lumo::secureapp
