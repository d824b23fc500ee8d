// The labels of the messages' map entries. A key parameter's label is its tag.
#pragma once

#include <cstdint>

enum class MessageLabel : uint8_t {
    kPasswordSid = 12,       // unsigned, 64 bits
    kBiometricSid = 13,      // unsigned, 64 bits
    kParamCount = 22,        // unsigned: how many key parameters follow
    kKeyBlob = 23,           // bytes
    kKeyFormat = 24,         // unsigned, keymaster_key_format_t
    kKeyData = 25,           // bytes, key material to import
    kWrappingKeyBlob = 26,   // bytes
    kWrappedKeyData = 27,    // bytes
    kMaskingKey = 28,        // bytes
    kCertCount = 32,         // unsigned, 32 bits
    kCert = 33,              // bytes, once for each certificate
    kOperationHandle = 34,   // unsigned, 64 bits
    kInput = 35,             // bytes
    kOutput = 36,            // bytes: operation output or exported key
    kInputConsumed = 37,     // unsigned, 32 bits
    kSignature = 38,         // bytes
    kActiveDate = 39,        // array of 9 integers, the fields of tztm
    kExpireDate = 40,        // likewise
    kHmacSeed = 41,          // bytes
    kHmacNonce = 42,         // bytes
    kHmacParams = 43,        // bytes, hmac_sharing_params_t records back to back
    kHmacCheck = 44,         // bytes
    kDestroyDeviceIds = 45,  // boolean
    kDeviceLocked = 46,      // boolean
};
