#pragma once

// Stand-in for the printer of the instance name in a parameterised test's name: "0_default".

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>

namespace android::hardware {

inline std::string PrintInstanceNameToString(const testing::TestParamInfo<std::string>& info) {
    std::string name = std::to_string(info.index) + "/" + info.param;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
    return name;
}

}  // namespace android::hardware
