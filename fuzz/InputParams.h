// A parameter set that the input describes.
//
// Input: a byte with the number of parameters, then for each a byte that picks its tag (the last
// value: four bytes of any tag follow) and its value by the tag's type: 4 or 8 bytes big-endian, a
// byte for a boolean, two bytes of length and the bytes for a blob (of a long one a byte, which is
// repeated).
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstring>
#include <deque>
#include <iterator>
#include <memory>
#include <vector>

#include "Property.h"

namespace lumo::fuzz {

inline constexpr int64_t kKnownTags[] = {
    KM_TAG_PURPOSE, KM_TAG_ALGORITHM, KM_TAG_KEY_SIZE, KM_TAG_BLOCK_MODE, KM_TAG_DIGEST,
    KM_TAG_PADDING, KM_TAG_CALLER_NONCE, KM_TAG_MIN_MAC_LENGTH, KM_TAG_EC_CURVE,
    KM_TAG_RSA_PUBLIC_EXPONENT, KM_TAG_INCLUDE_UNIQUE_ID, KM_TAG_BLOB_USAGE_REQUIREMENTS,
    KM_TAG_BOOTLOADER_ONLY, KM_TAG_ROLLBACK_RESISTANCE, KM_TAG_EARLY_BOOT_ONLY,
    KM_TAG_ACTIVE_DATETIME, KM_TAG_ORIGINATION_EXPIRE_DATETIME, KM_TAG_USAGE_EXPIRE_DATETIME,
    KM_TAG_MIN_SECONDS_BETWEEN_OPS, KM_TAG_MAX_USES_PER_BOOT, KM_TAG_ALL_USERS, KM_TAG_USER_ID,
    KM_TAG_USER_SECURE_ID, KM_TAG_NO_AUTH_REQUIRED, KM_TAG_USER_AUTH_TYPE, KM_TAG_AUTH_TIMEOUT,
    KM_TAG_ALLOW_WHILE_ON_BODY, KM_TAG_TRUSTED_CONFIRMATION_REQUIRED,
    KM_TAG_UNLOCKED_DEVICE_REQUIRED, KM_TAG_ALL_APPLICATIONS, KM_TAG_APPLICATION_ID,
    KM_TAG_EXPORTABLE, KM_TAG_APPLICATION_DATA, KM_TAG_CREATION_DATETIME, KM_TAG_ORIGIN,
    KM_TAG_ROLLBACK_RESISTANT, KM_TAG_ROOT_OF_TRUST, KM_TAG_OS_VERSION, KM_TAG_OS_PATCHLEVEL,
    KM_TAG_UNIQUE_ID, KM_TAG_ATTESTATION_CHALLENGE, KM_TAG_ATTESTATION_APPLICATION_ID,
    KM_TAG_ATTESTATION_ID_BRAND, KM_TAG_ATTESTATION_ID_MODEL, KM_TAG_DEVICE_UNIQUE_ATTESTATION,
    KM_TAG_IDENTITY_CREDENTIAL_KEY, KM_TAG_ASSOCIATED_DATA, KM_TAG_NONCE, KM_TAG_AUTH_TOKEN,
    KM_TAG_MAC_LENGTH, KM_TAG_RESET_SINCE_ID_ROTATION,
    // Newer than the platform's C header.
    0x10000130,  // hardware type
    0x700001FB,  // trusted user presence required
    0x300002CE,  // vendor patch level
    0x300002CF,  // boot patch level
    0xF0000001,  // a type that there is not
};

class InputParams {
  public:
    explicit InputParams(Input& input) {
        const size_t count = input.byte() % 32;
        params_.reserve(count);
        for (size_t i = 0; i < count && input.size() != 0; ++i) add(input);
        set_ = {params_.data(), params_.size()};
    }
    InputParams(const InputParams&) = delete;
    InputParams& operator=(const InputParams&) = delete;

    const keymaster_key_param_set_t* get() const { return &set_; }
    size_t size() const { return params_.size(); }
    const keymaster_key_param_t& operator[](size_t i) const { return params_[i]; }

    // Behind what the input describes.
    void add(const keymaster_key_param_t& param) {
        params_.push_back(param);
        set_ = {params_.data(), params_.size()};
    }

  private:
    void add(Input& input) {
        constexpr size_t kTags = std::size(kKnownTags);
        const uint8_t pick = input.byte();
        const uint32_t bits = pick == 0xFF ? static_cast<uint32_t>(input.number(4))
                                           : static_cast<uint32_t>(kKnownTags[pick % kTags]);
        keymaster_key_param_t param = {};
        std::memcpy(&param.tag, &bits, sizeof(bits));
        switch (keymaster_tag_get_type(param.tag)) {
            case KM_ULONG:
            case KM_ULONG_REP:
            case KM_DATE:
                param.long_integer = input.number(8);
                break;
            case KM_BOOL:
                param.boolean = (input.byte() & 1) != 0;
                break;
            case KM_BIGNUM:
            case KM_BYTES:
                addBlob(input, &param);
                break;
            default:
                param.integer = static_cast<uint32_t>(input.number(4));
        }
        params_.push_back(param);
    }

    // In a block of exactly its size. A long one is a single byte, repeated; a length above what a
    // request holds is one without bytes.
    void addBlob(Input& input, keymaster_key_param_t* param) {
        constexpr size_t kLongest = 0xFF00;
        constexpr size_t kLong = 4096;
        const size_t length = input.twoBytes();
        if (length >= kLongest) {
            param->blob = {nullptr, length - kLongest};
            return;
        }
        using Bytes = std::vector<uint8_t>;
        const Bytes bytes =
            length < kLong ? input.take<Bytes>(length) : Bytes(length, input.byte());
        blobs_.push_back(exactCopy(bytes));
        param->blob = {blobs_.back().get(), bytes.size()};
    }

    std::deque<std::unique_ptr<uint8_t[]>> blobs_;
    std::vector<keymaster_key_param_t> params_;
    keymaster_key_param_set_t set_ = {nullptr, 0};
};

}  // namespace lumo::fuzz
