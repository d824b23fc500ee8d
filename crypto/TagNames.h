// Printable names of keymaster tags, for diagnostics.
#pragma once

#include <cstddef>
#include <cstdint>

namespace keymasterdevice {

struct tag_string_t {
    uint32_t tag;
    char name[100];  // NUL-terminated, zero-filled
};
static_assert(sizeof(tag_string_t) == 104, "a tag and its name, nothing between");

constexpr size_t kTagStringCount = 42;
extern const tag_string_t tag_string[kTagStringCount];

// The name of the first entry with this very tag, type bits included; null when there is none.
const char* tagName(uint32_t tag);

}  // namespace keymasterdevice
