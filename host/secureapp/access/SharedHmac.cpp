#include "secureapp/access/SharedHmac.h"

#include <algorithm>
#include <string_view>

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"
#include "secureapp/crypto/AesCmac.h"
#include "secureapp/crypto/Digest.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kSeedBytes = 32;
constexpr size_t kNonceBytes = 32;
constexpr char kSeedRecord[] = "hmac-seed";

constexpr std::string_view kDerivationLabel = "KeymasterSharedMac";
constexpr std::string_view kCheckLabel = "Keymaster HMAC Verification";

bool hasRightSizes(const HmacSharingParameters& params) {
    return (params.seed.empty() || params.seed.size() == kSeedBytes) &&
           params.nonce.size() == kNonceBytes;
}

}  // namespace

SharedHmac::SharedHmac(State& own_state, State& shared_state, RandomSource& random,
                       keymaster_security_level_t level)
    : pre_shared_secret_(shared_state, random, kSharedSecretRecord, kSecretRecordBytes) {
    if (level == KM_SECURITY_LEVEL_STRONGBOX) {
        seed_.emplace(own_state, random, kSeedRecord, kSeedBytes);
    }
    own_.nonce = random.bytes(kNonceBytes);
}

const HmacSharingParameters& SharedHmac::ownParameters() {
    if (seed_) own_.seed = seed_->bytes();
    return own_;
}

const Bytes& SharedHmac::key() {
    if (key_.empty()) key_ = deriveSharedKey(pre_shared_secret_.bytes(), {ownParameters()});
    return key_;
}

Bytes SharedHmac::agree(const std::vector<HmacSharingParameters>& all) {
    const HmacSharingParameters& own = ownParameters();
    const auto is_own = [&own](const HmacSharingParameters& params) {
        return params.seed == own.seed && params.nonce == own.nonce;
    };
    const auto wrong = std::find_if_not(all.begin(), all.end(), hasRightSizes);
    if (wrong != all.end()) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "parameters ", wrong - all.begin() + 1, " of ",
               all.size(), " have a seed of ", wrong->seed.size(), " and a nonce of ",
               wrong->nonce.size(), " bytes");
    }
    if (std::none_of(all.begin(), all.end(), is_own)) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "this instance's own parameters of this boot, nonce ",
               startWords(own.nonce), ", are not among the ", all.size(), " that came");
    }
    key_ = deriveSharedKey(pre_shared_secret_.bytes(), all);
    return sharingCheck(key_);
}

Bytes deriveSharedKey(ByteView pre_shared_secret, const std::vector<HmacSharingParameters>& all) {
    constexpr uint32_t kKeyBits = 256;
    constexpr uint32_t kBlocks = 2;  // of 128 bits, CMAC's output
    Bytes fixed_input;
    append(fixed_input, kDerivationLabel);
    fixed_input.push_back(0);
    for (const HmacSharingParameters& params : all) {
        append(fixed_input, params.seed);
        append(fixed_input, params.nonce);
    }
    appendBig(fixed_input, kKeyBits, sizeof(kKeyBits));

    Bytes key;
    for (uint32_t i = 1; i <= kBlocks; ++i) {
        Bytes input;
        appendBig(input, i, sizeof(i));
        append(input, fixed_input);
        append(key, aesCmac(pre_shared_secret, input));
    }
    return key;
}

Bytes sharingCheck(ByteView shared_key) {
    Bytes message;
    append(message, kCheckLabel);
    return hmacSha256(shared_key, message);
}

}  // namespace lumo::secureapp
