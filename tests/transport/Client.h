// A small client of KeymasterUtils: raw CBOR messages and records.
#pragma once

#include <KeymasterUtils.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>

#include "secureapp/base/Bytes.h"

namespace lumo::test {

using secureapp::Bytes;

struct CborAnswer {
    keymaster_error_t error;
    Bytes body;
};

inline CborAnswer sendCbor(keymasterutils::KeymasterUtils& transport, uint32_t command,
                           const Bytes& request) {
    keymaster_blob_t buffer = {nullptr, 0};
    EXPECT_EQ(transport.init(command, &buffer), KM_ERROR_OK);
    EXPECT_GE(buffer.data_length, request.size());
    std::copy(request.begin(), request.end(), const_cast<uint8_t*>(buffer.data));
    buffer.data_length = request.size();
    keymaster_blob_t response = {nullptr, 0};
    const keymaster_error_t error = transport.sendCmd(buffer, &response);
    return {error, Bytes(response.data, response.data + response.data_length)};
}

// Sends words and returns the answer's first one; the transport must bring it.
inline int32_t sendRecord(keymasterutils::KeymasterUtils& transport,
                          std::initializer_list<uint32_t> words) {
    uint8_t* shared = static_cast<uint8_t*>(transport.vaultlink_dev_init());
    uint32_t size = 0;
    for (const uint32_t word : words) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            shared[size++] = static_cast<uint8_t>(word >> shift);
        }
    }
    const int32_t sent = transport.send_cmd(
        shared, size, shared + size, keymasterutils::KeymasterUtils::kSharedBufferBytes - size);
    if (sent != 0) return sent;
    uint32_t status = 0;
    for (unsigned i = 4; i-- > 0;) status = status << 8 | shared[size + i];
    return static_cast<int32_t>(status);
}

constexpr uint32_t kConfigure = 0x2116;
constexpr uint32_t kGenerate = 0x2108;
constexpr uint32_t kBegin = 0x210F;
constexpr uint32_t kSharing = 0x220E;
constexpr uint32_t kDateSupport = 0x215;

// OS version and patch level.
const Bytes kVersions = {0xA3, 0x16, 0x02, 0x1A, 0x30, 0x00, 0x02, 0xC1, 0x1A, 0x00, 0x01, 0xAD,
                         0xB0, 0x1A, 0x30, 0x00, 0x02, 0xC2, 0x1A, 0x00, 0x03, 0x15, 0x1C};
// An HMAC key with 256 bits for SHA-256.
const Bytes kHmacKey = {0xA7, 0x16, 0x06, 0x1A, 0x10, 0,    0,    0x02, 0x18, 0x80, 0x1A,
                        0x30, 0,    0,    0x03, 0x19, 0x01, 0x00, 0x1A, 0x20, 0,    0,
                        0x01, 0x02, 0x1A, 0x20, 0,    0,    0x05, 0x04, 0x1A, 0x30, 0,
                        0,    0x08, 0x19, 0x01, 0x00, 0x1A, 0x70, 0,    0x01, 0xF7, 0xF5};

// An answer of one entry is the entry of a later request.
inline Bytes entryOf(const Bytes& answer) {
    return secureapp::ByteView(answer).sub(1).copy();
}

// A request to sign with the key of a generate answer.
inline Bytes beginSign(const Bytes& generated) {
    Bytes request = {0xA5, 0x16, 0x03, 0x1A, 0x20, 0,    0,    0x05, 0x04, 0x1A, 0x30, 0,
                     0x03, 0xEB, 0x19, 0x01, 0x00, 0x1A, 0x20, 0,    0,    0x01, 0x02};
    const Bytes key = entryOf(generated);
    request.insert(request.end(), key.begin(), key.end());
    return request;
}

inline void useTransport(const std::string& name) {
    ::setenv("LUMO_TRANSPORT", name.c_str(), 1);
}

}  // namespace lumo::test
