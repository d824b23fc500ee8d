// Key blobs for tests, put together from numbers that stand apart from the library's own table,
// and parameter sets as text.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace lumo::test {

// Zeroes but for the magic, the version and the fields, each as "offset:bytes=value".
inline std::vector<uint8_t> blobOf(size_t size, uint32_t major, uint32_t minor,
                                   const std::string& fields) {
    std::vector<uint8_t> blob(size);
    std::istringstream all("0:4=0x4b4d4b44 8:4=" + std::to_string(minor) +
                           " 12:4=" + std::to_string(major) + " " + fields);
    for (std::string field; all >> field;) {
        size_t at = std::stoul(field);
        const size_t end = at + std::stoul(field.substr(field.find(':') + 1));
        uint64_t value = std::stoull(field.substr(field.find('=') + 1), nullptr, 0);
        for (; at < end && at < size; ++at, value >>= 8) blob[at] = static_cast<uint8_t>(value);
    }
    return blob;
}

// "tag=value" in hexadecimal for each parameter; a blob is its bytes.
inline std::vector<std::string> linesOf(const keymaster_key_param_set_t& set) {
    std::vector<std::string> lines;
    for (size_t i = 0; i < set.length; ++i) {
        const keymaster_key_param_t& param = set.params[i];
        const auto tag = static_cast<uint32_t>(param.tag);
        const uint32_t type = tag >> 28;
        std::ostringstream line;
        line << std::hex << tag << "=";
        uint8_t boolean = 0;  // may be any byte, which a bool may not
        std::memcpy(&boolean, &param.boolean, 1);
        if (type == 5 || type == 6 || type == 10) line << param.long_integer;
        if (type == 7) line << unsigned{boolean};
        if (type < 5 || type > 10) line << param.integer;
        for (size_t b = 0; (type == 8 || type == 9) && b < param.blob.data_length; ++b) {
            line << (param.blob.data[b] < 16 ? "0" : "") << unsigned{param.blob.data[b]};
        }
        lines.push_back(line.str());
    }
    return lines;
}

}  // namespace lumo::test
