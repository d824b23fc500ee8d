#pragma once

// Stand-in for the types of android.hidl.base@1.0.

#include <hidl/HidlSupport.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace android::hidl::base::V1_0 {

struct DebugInfo final {
    enum class Architecture : int32_t {
        UNKNOWN = 0,
        IS_64BIT = 1,
        IS_32BIT = 2,
    };

    int32_t pid;
    uint64_t ptr;
    Architecture arch;
};

static_assert(sizeof(DebugInfo) == 24 && alignof(DebugInfo) == 8, "published layout");
static_assert(offsetof(DebugInfo, pid) == 0, "published layout");
static_assert(offsetof(DebugInfo, ptr) == 8, "published layout");
static_assert(offsetof(DebugInfo, arch) == 16, "published layout");

std::string toString(DebugInfo::Architecture arch);
std::string toString(const DebugInfo& info);

inline bool operator==(const DebugInfo& a, const DebugInfo& b) {
    return a.pid == b.pid && a.ptr == b.ptr && a.arch == b.arch;
}
inline bool operator!=(const DebugInfo& a, const DebugInfo& b) {
    return !(a == b);
}

}  // namespace android::hidl::base::V1_0
