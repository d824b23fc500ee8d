// What the library's reader of CBOR answers says where it cannot read one. The library hands these
// numbers on as they are, in place of a keymaster code.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lumo::cli {

struct ReaderStatus {
    int32_t number;
    const char* name;     // QCBOR's; empty where the number is the library's own
    const char* meaning;  // of the answer
};

// Those that can come of an answer.
const std::vector<ReaderStatus>& readerStatuses();

// Null for any other number.
const ReaderStatus* findReaderStatus(int32_t number);

// A keymaster code is never positive.
constexpr bool isReaderStatus(int32_t number) {
    return number > 0;
}

// The one number that is a code as well, ROOT_OF_TRUST_ALREADY_SET.
constexpr int32_t kBadValueStatus = -1;

// "the answer could not be read: it ends too early (status 6 of its reader)"
std::string unreadableText(int32_t status);

// What to try.
inline constexpr char kUnreadableAdvice[] =
    "library and secure application may be of different versions; -v shows each exchange";

}  // namespace lumo::cli
