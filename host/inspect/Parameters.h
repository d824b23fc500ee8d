// Names and readings of key parameters and of what stands inside them.
#pragma once

#include "inspect/Message.h"

namespace lumo::inspect {

// How the value of a tag travels.
enum class ValueKind { kUnknown, kWord, kLong, kBool, kBytes };
ValueKind valueKindOf(uint32_t tag);

// "ALGORITHM"; a number where the tag is not published.
std::string tagName(uint32_t tag);
bool isPublishedTag(uint32_t tag);
Meaning meaningOf(uint32_t tag);

// "EC", a date, or nothing where the number says all.
std::string explainNumber(uint32_t tag, uint64_t value);
// "3 (EC)"; of tags for ids as idText().
std::string numberText(uint32_t tag, uint64_t value);
// "2030-01-31T12:00:00Z", of milliseconds since 1970-01-01 UTC.
std::string dateText(uint64_t millis);
// "0x0000000000000001".
std::string idText(uint64_t id);

// "1 byte", "2 bytes".
std::string countOfBytes(size_t count);

// By its name: "INVALID_KEY_BLOB".
std::string errorName(int32_t code);

// Digits of bytes, cut after `most` of them; says where they are hidden.
std::string bytesText(ByteView bytes, size_t offset, const std::vector<Hidden>& hidden,
                      size_t most = 32);
const Hidden* hiddenIn(size_t offset, size_t size, const std::vector<Hidden>& hidden);

// The parts of an auth token whose bytes lie at `offset` of `message`, as fields of depth 1.
void addTokenFields(Message& message, ByteView token, size_t offset,
                    const std::vector<Hidden>& hidden);

}  // namespace lumo::inspect
