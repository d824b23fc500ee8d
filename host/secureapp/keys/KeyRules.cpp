#include "secureapp/keys/KeyRules.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <tuple>

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"
#include "secureapp/crypto/Curves.h"
#include "secureapp/crypto/Digest.h"
#include "secureapp/keys/KeyVersions.h"

namespace lumo::secureapp {
namespace {

constexpr keymaster_tag_t kForbiddenTags[] = {
    KM_TAG_ORIGIN,
    KM_TAG_ROOT_OF_TRUST,
    KM_TAG_UNIQUE_ID,
    KM_TAG_IDENTITY_CREDENTIAL_KEY,
};

// Arguments of operations and attestations, and tags that the secure side adds itself.
constexpr keymaster_tag_t kDroppedTags[] = {
    KM_TAG_OS_VERSION,
    KM_TAG_OS_PATCHLEVEL,
    kTagVendorPatchlevel,
    kTagBootPatchlevel,
    KM_TAG_NONCE,
    KM_TAG_MAC_LENGTH,
    KM_TAG_ASSOCIATED_DATA,
    KM_TAG_AUTH_TOKEN,
    kTagConfirmationToken,
    KM_TAG_ATTESTATION_CHALLENGE,
    KM_TAG_ATTESTATION_APPLICATION_ID,
    KM_TAG_ATTESTATION_ID_BRAND,
    KM_TAG_ATTESTATION_ID_DEVICE,
    KM_TAG_ATTESTATION_ID_PRODUCT,
    KM_TAG_ATTESTATION_ID_SERIAL,
    KM_TAG_ATTESTATION_ID_IMEI,
    KM_TAG_ATTESTATION_ID_MEID,
    KM_TAG_ATTESTATION_ID_MANUFACTURER,
    KM_TAG_ATTESTATION_ID_MODEL,
    KM_TAG_RESET_SINCE_ID_ROTATION,
    KM_TAG_DEVICE_UNIQUE_ATTESTATION,
};

constexpr uint32_t kAlgorithms[] = {KM_ALGORITHM_RSA, KM_ALGORITHM_EC, KM_ALGORITHM_AES,
                                    KM_ALGORITHM_TRIPLE_DES, KM_ALGORITHM_HMAC};

constexpr uint32_t kRsaBits[] = {1024, 2048, 3072, 4096};
constexpr uint32_t kStrongBoxRsaBits = 2048;
constexpr uint64_t kRsaExponents[] = {3, 65537};

constexpr uint32_t kTripleDesBits = 168;
constexpr uint32_t kMinHmacBits = 64;
constexpr uint32_t kMaxHmacBits = 1024;
constexpr uint32_t kMaxStrongBoxHmacBits = 512;
constexpr uint32_t kMinHmacMacBits = 64;
constexpr uint32_t kMinGcmMacBits = 96;
constexpr uint32_t kMaxGcmMacBits = 128;

constexpr uint32_t kStrongBoxCurve = KM_EC_CURVE_P_256;

template <typename T, size_t N>
bool isIn(const T (&values)[N], uint64_t value) {
    return std::any_of(std::begin(values), std::end(values),
                       [value](T each) { return static_cast<uint64_t>(each) == value; });
}

template <size_t N>
bool isTagIn(const keymaster_tag_t (&tags)[N], keymaster_tag_t tag) {
    return std::find(std::begin(tags), std::end(tags), tag) != std::end(tags);
}

bool isStrongBox(keymaster_security_level_t level) {
    return level == KM_SECURITY_LEVEL_STRONGBOX;
}

// The caller's parameter as an authorization of the key; nullopt when it does not become one.
std::optional<Param> stored(const Param& param) {
    const keymaster_tag_type_t type = keymaster_tag_get_type(param.tag);
    if (type == KM_INVALID || isTagIn(kDroppedTags, param.tag)) return std::nullopt;
    if (type != KM_BOOL) return param;
    // The older tag of the same property, which is granted under the newer one.
    if (param.tag == KM_TAG_ROLLBACK_RESISTANT) return boolParam(KM_TAG_ROLLBACK_RESISTANCE);
    return boolParam(param.tag);  // its presence counts, whatever the value
}

ParamSet withoutRepetition(const ParamSet& params) {
    ParamSet result;
    std::set<std::tuple<keymaster_tag_t, uint64_t, Bytes>> seen;
    std::set<keymaster_tag_t> tags;
    for (const Param& each : params) {
        std::optional<Param> param = stored(each);
        if (!param || !seen.emplace(param->tag, param->integer, param->bytes).second) continue;
        if (!tags.insert(param->tag).second && !keymaster_tag_repeatable(param->tag)) {
            refuse(KM_ERROR_INVALID_ARGUMENT, tagName(param->tag),
                   " is given with two values, and a key has one");
        }
        result.add(std::move(*param));
    }
    return result;
}

void checkAbilities(const ParamSet& params, const CreationContext& context) {
    if (params.contains(KM_TAG_EARLY_BOOT_ONLY) && !context.early_boot) {
        refuse(KM_ERROR_EARLY_BOOT_ENDED,
               "keys with EARLY_BOOT_ONLY are made in early boot, which has ended");
    }
    // Such keys are for inline encryption hardware, of which there is none.
    if (params.contains(kTagStorageKey)) {
        refuse(kErrorStorageKeyUnsupported,
               "there is no inline encryption hardware to use STORAGE_KEY with");
    }
    if (params.contains(KM_TAG_ROLLBACK_RESISTANCE) && !context.rollback_resistance) {
        refuse(KM_ERROR_ROLLBACK_RESISTANCE_UNAVAILABLE,
               "world.conf gives this device no rollback resistance");
    }
    const uint64_t hardware = params.integer(kTagHardwareType).value_or(context.level);
    if (hardware != context.level) {
        refuse(kErrorHardwareTypeUnavailable, "HARDWARE_TYPE is ",
               valueWord(kTagHardwareType, hardware), ", this is ", levelWord(context.level));
    }
    if (params.contains(kTagTrustedUserPresenceRequired) && !context.user_presence) {
        refuse(KM_ERROR_UNIMPLEMENTED,
               "this device has no button for TRUSTED_USER_PRESENCE_REQUIRED; user_presence in "
               "world.conf gives it one");
    }
}

bool supportsSymmetricSize(uint32_t algorithm, uint64_t bits, keymaster_security_level_t level) {
    switch (algorithm) {
        case KM_ALGORITHM_AES:
            return bits == 128 || bits == 256 || (bits == 192 && !isStrongBox(level));
        case KM_ALGORITHM_TRIPLE_DES:
            return bits == kTripleDesBits;
        default:
            return bits >= kMinHmacBits && bits % 8 == 0 &&
                   bits <= (isStrongBox(level) ? kMaxStrongBoxHmacBits : kMaxHmacBits);
    }
}

bool supportsSize(const KeyFacts& facts, keymaster_security_level_t level) {
    switch (facts.algorithm) {
        case KM_ALGORITHM_RSA:
            return isStrongBox(level) ? facts.bits == kStrongBoxRsaBits
                                      : isIn(kRsaBits, facts.bits);
        case KM_ALGORITHM_EC:
            return !isStrongBox(level) || facts.curve == kStrongBoxCurve;
        default:
            return supportsSymmetricSize(facts.algorithm, facts.bits, level);
    }
}

// The level supports no key of these facts.
[[noreturn]] void refuseSize(keymaster_error_t code, const KeyFacts& facts,
                             keymaster_security_level_t level) {
    if (facts.bits == 0) {
        refuse(code, "a key of ", algorithmWord(facts.algorithm), " needs KEY_SIZE");
    }
    refuse(code, levelWord(level), " has no ", algorithmWord(facts.algorithm), " keys of ",
           facts.bits, " bits");
}

KeyFacts planEc(const ParamSet& params, keymaster_security_level_t level) {
    const std::optional<uint64_t> bits = params.integer(KM_TAG_KEY_SIZE);
    const std::optional<uint64_t> wanted = params.integer(KM_TAG_EC_CURVE);
    if (!bits && !wanted) {
        refuse(KM_ERROR_UNSUPPORTED_KEY_SIZE, "an EC key needs EC_CURVE or KEY_SIZE");
    }
    if (bits && findCurveOfBits(*bits) == nullptr) {
        refuse(KM_ERROR_UNSUPPORTED_KEY_SIZE, "no curve has ", *bits,
               " bits: there are 224, 256, 384 and 521");
    }
    const Curve* curve = wanted ? findCurve(*wanted) : findCurveOfBits(*bits);
    if (curve == nullptr)
        refuse(KM_ERROR_UNSUPPORTED_EC_CURVE, "EC_CURVE ", *wanted, " is unknown");
    if (bits && curve->bits != *bits) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "curve ", valueWord(KM_TAG_EC_CURVE, *wanted), " has ",
               curve->bits, " bits, KEY_SIZE is ", *bits);
    }

    const KeyFacts facts = {KM_ALGORITHM_EC, curve->bits, curve->curve, std::nullopt};
    if (!supportsSize(facts, level)) {
        refuseSize(bits ? KM_ERROR_UNSUPPORTED_KEY_SIZE : KM_ERROR_UNSUPPORTED_EC_CURVE, facts,
                   level);
    }
    return facts;
}

void checkHmacRules(const ParamSet& params, keymaster_security_level_t level) {
    const std::vector<uint64_t> digests = params.integers(KM_TAG_DIGEST);
    if (digests.size() != 1 || digests[0] > UINT32_MAX) {
        refuse(KM_ERROR_UNSUPPORTED_DIGEST,
               "an HMAC key has one digest, given are: ", valueWords(KM_TAG_DIGEST, digests));
    }
    const auto digest = static_cast<uint32_t>(digests[0]);
    const uint32_t digest_bits = digestBits(digest);
    if (digest_bits == 0) {
        refuse(KM_ERROR_UNSUPPORTED_DIGEST, "there is no HMAC with digest ",
               valueWord(KM_TAG_DIGEST, digest));
    }
    if (isStrongBox(level) && digest != KM_DIGEST_SHA_2_256) {
        refuse(KM_ERROR_UNSUPPORTED_DIGEST, "StrongBox has HMAC with sha256 alone, not with ",
               valueWord(KM_TAG_DIGEST, digest));
    }

    const std::optional<uint64_t> least = params.integer(KM_TAG_MIN_MAC_LENGTH);
    if (!least) refuse(KM_ERROR_MISSING_MIN_MAC_LENGTH, "an HMAC key needs MIN_MAC_LENGTH");
    if (*least < kMinHmacMacBits || *least > digest_bits || *least % 8 != 0) {
        refuse(KM_ERROR_UNSUPPORTED_MIN_MAC_LENGTH, "MIN_MAC_LENGTH is ", *least, ", with ",
               valueWord(KM_TAG_DIGEST, digest), " it is a multiple of 8 from ", kMinHmacMacBits,
               " to ", digest_bits);
    }
}

void checkGcmRules(const ParamSet& params) {
    if (!params.contains(KM_TAG_BLOCK_MODE, KM_MODE_GCM)) return;
    const std::optional<uint64_t> least = params.integer(KM_TAG_MIN_MAC_LENGTH);
    if (!least) {
        refuse(KM_ERROR_MISSING_MIN_MAC_LENGTH,
               "an AES key with block mode gcm needs "
               "MIN_MAC_LENGTH");
    }
    if (*least < kMinGcmMacBits || *least > kMaxGcmMacBits || *least % 8 != 0) {
        refuse(KM_ERROR_UNSUPPORTED_MIN_MAC_LENGTH, "MIN_MAC_LENGTH is ", *least,
               ", for block mode gcm it is a multiple of 8 from ", kMinGcmMacBits, " to ",
               kMaxGcmMacBits);
    }
}

void replace(ParamSet& params, Param param) {
    params.removeAll(param.tag);
    params.add(std::move(param));
}

}  // namespace

ParamSet acceptCreation(const ParamSet& params, const CreationContext& context) {
    const std::optional<uint64_t> algorithm = params.integer(KM_TAG_ALGORITHM);
    if (!isIn(kAlgorithms, algorithm.value_or(0))) {
        refuse(KM_ERROR_UNSUPPORTED_ALGORITHM, "a key needs a known ALGORITHM, given is ",
               algorithm ? std::to_string(*algorithm) : "none");
    }
    for (const Param& param : params) {
        if (!isTagIn(kForbiddenTags, param.tag)) continue;
        refuse(KM_ERROR_INVALID_TAG, tagName(param.tag), " is not for a caller to set");
    }
    ParamSet accepted = withoutRepetition(params);
    if (accepted.contains(KM_TAG_NO_AUTH_REQUIRED) && accepted.contains(KM_TAG_USER_SECURE_ID)) {
        refuse(KM_ERROR_INVALID_ARGUMENT,
               "NO_AUTH_REQUIRED and USER_SECURE_ID contradict each other; leave one of them out");
    }
    checkAbilities(accepted, context);
    return accepted;
}

KeyFacts planGeneration(const ParamSet& params, keymaster_security_level_t level) {
    const auto algorithm = static_cast<uint32_t>(params.integer(KM_TAG_ALGORITHM).value_or(0));
    if (algorithm == KM_ALGORITHM_EC) return planEc(params, level);

    KeyFacts facts;
    facts.algorithm = algorithm;
    facts.bits = params.integer(KM_TAG_KEY_SIZE).value_or(0);
    if (!supportsSize(facts, level)) refuseSize(KM_ERROR_UNSUPPORTED_KEY_SIZE, facts, level);
    if (algorithm == KM_ALGORITHM_RSA) {
        facts.exponent = params.integer(KM_TAG_RSA_PUBLIC_EXPONENT);
        if (!isIn(kRsaExponents, facts.exponent.value_or(0))) {
            refuse(KM_ERROR_INVALID_ARGUMENT, "RSA_PUBLIC_EXPONENT is 3 or 65537, given is ",
                   facts.exponent ? std::to_string(*facts.exponent) : "none");
        }
    }
    return facts;
}

void checkImport(const ParamSet& params, const KeyFacts& facts, keymaster_security_level_t level) {
    const auto compare = [&params](keymaster_tag_t tag, std::optional<uint64_t> fact) {
        const std::optional<uint64_t> wanted = params.integer(tag);
        if (!wanted || !fact || *wanted == *fact) return;
        refuse(KM_ERROR_IMPORT_PARAMETER_MISMATCH, tagName(tag), " is ", valueWord(tag, *wanted),
               ", that of the key is ", valueWord(tag, *fact));
    };
    compare(KM_TAG_KEY_SIZE, facts.bits);
    compare(KM_TAG_EC_CURVE, facts.curve);
    compare(KM_TAG_RSA_PUBLIC_EXPONENT, facts.exponent);
    if (!supportsSize(facts, level)) refuseSize(KM_ERROR_UNSUPPORTED_KEY_SIZE, facts, level);
}

void checkMacRules(const ParamSet& params, keymaster_security_level_t level) {
    switch (params.integer(KM_TAG_ALGORITHM).value_or(0)) {
        case KM_ALGORITHM_HMAC:
            return checkHmacRules(params, level);
        case KM_ALGORITHM_AES:
            return checkGcmRules(params);
        default:
            return;
    }
}

ParamSet finishAuthorizations(const ParamSet& params, const KeyFacts& facts,
                              const Additions& additions) {
    ParamSet result = params;
    result.removeAll(KM_TAG_APPLICATION_ID);
    result.removeAll(KM_TAG_APPLICATION_DATA);
    replace(result, intParam(KM_TAG_KEY_SIZE, facts.bits));
    if (facts.curve) replace(result, intParam(KM_TAG_EC_CURVE, *facts.curve));
    if (facts.exponent) replace(result, intParam(KM_TAG_RSA_PUBLIC_EXPONENT, *facts.exponent));
    replace(result, intParam(KM_TAG_ORIGIN, additions.origin));
    replace(result, intParam(KM_TAG_BLOB_USAGE_REQUIREMENTS, KM_BLOB_STANDALONE));
    if (!result.contains(KM_TAG_CREATION_DATETIME)) {
        result.add(intParam(KM_TAG_CREATION_DATETIME, additions.now));
    }
    setVersions(result, additions.versions);
    return result;
}

}  // namespace lumo::secureapp
