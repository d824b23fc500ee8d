#include "CreationArguments.h"

#include "Failure.h"

namespace lumo::cli {

using km::V4_0::Algorithm;
using km::V4_0::KeyFormat;

namespace {

constexpr size_t kMaskingKeyBytes = 32;

constexpr TagOption kCreationOptions[] = {
    {"--algorithm", Tag::ALGORITHM, "algorithm of the key"},
    {"--size", Tag::KEY_SIZE, "size in bits"},
    {"--curve", Tag::EC_CURVE, "curve of an EC key"},
    {"--exponent", Tag::RSA_PUBLIC_EXPONENT,
     "public exponent of an RSA key (65537 when one is generated)"},
    {"--purpose", Tag::PURPOSE, "what the key may be used for, comma-separated"},
    {"--digest", Tag::DIGEST, "digests that it may be used with, comma-separated"},
    {"--padding", Tag::PADDING, "paddings that it may be used with, comma-separated"},
    {"--mode", Tag::BLOCK_MODE, "block modes that it may be used with, comma-separated"},
    {"--min-mac-length", Tag::MIN_MAC_LENGTH, "shortest MAC in bits, for HMAC and GCM"},
    {"--caller-nonce", Tag::CALLER_NONCE, "nonces may be chosen when encrypting"},
};

constexpr TagOption kAccessOptions[] = {
    {"--no-auth-required", Tag::NO_AUTH_REQUIRED, "usable without a user; the default"},
    {"--user-secure-id", Tag::USER_SECURE_ID, "usable by these users only, comma-separated"},
    {"--user-auth-type", Tag::USER_AUTH_TYPE, "how the user may prove presence, joined by +"},
    {"--auth-timeout", Tag::AUTH_TIMEOUT, "seconds that a token is good for"},
    {"--allow-while-on-body", Tag::ALLOW_WHILE_ON_BODY, "usable while the device is carried"},
    {"--unlocked-device", Tag::UNLOCKED_DEVICE_REQUIRED, "usable while the device is unlocked"},
    {"--trusted-presence", Tag::TRUSTED_USER_PRESENCE_REQUIRED, "needs proof of presence"},
    {"--trusted-confirmation", Tag::TRUSTED_CONFIRMATION_REQUIRED, "signs confirmed data only"},
    {"--user-id", Tag::USER_ID, "Android user that the key belongs to"},
    {"--app-id", Tag::APPLICATION_ID, "bind the key to an application id"},
    {"--app-data", Tag::APPLICATION_DATA, "bind the key to application data"},
};

constexpr TagOption kLifeOptions[] = {
    {"--active-from", Tag::ACTIVE_DATETIME, "not usable before"},
    {"--origination-expires", Tag::ORIGINATION_EXPIRE_DATETIME, "no signing, encrypting after"},
    {"--usage-expires", Tag::USAGE_EXPIRE_DATETIME, "no verifying, decrypting after"},
    {"--creation-date", Tag::CREATION_DATETIME, "date of creation in place of today's"},
    {"--min-seconds-between-ops", Tag::MIN_SECONDS_BETWEEN_OPS, "shortest time between uses"},
    {"--max-uses-per-boot", Tag::MAX_USES_PER_BOOT, "uses until the next boot"},
    {"--rollback-resistance", Tag::ROLLBACK_RESISTANCE, "deleting it is final"},
    {"--early-boot-only", Tag::EARLY_BOOT_ONLY, "usable until early boot ends (4.1)"},
    {"--bootloader-only", Tag::BOOTLOADER_ONLY, "usable by the boot loader alone"},
    {"--storage-key", Tag::STORAGE_KEY, "for storage encryption alone (4.1)"},
    {"--blob-usage", Tag::BLOB_USAGE_REQUIREMENTS, "what the blob needs to be usable"},
    {"--hardware-type", Tag::HARDWARE_TYPE, "hardware that the key must live in"},
    {"--include-unique-id", Tag::INCLUDE_UNIQUE_ID, "attest the device's unique id with it"},
};

}  // namespace

void CreationArguments::declare(CLI::App& app) {
    options_.declare(app, kCreationOptions, "Key");
    options_.declare(app, kAccessOptions, "Access");
    options_.declare(app, kLifeOptions, "Life");
    options_.declareAny(app);
}

std::vector<KeyParameter> CreationArguments::parameters() const {
    std::vector<KeyParameter> parameters = options_.parameters();
    if (!has(Tag::USER_SECURE_ID) && !has(Tag::NO_AUTH_REQUIRED)) {
        parameters.push_back(makeBool(Tag::NO_AUTH_REQUIRED));
    }
    return parameters;
}

bool isAlgorithm(const std::vector<KeyParameter>& parameters, Algorithm algorithm) {
    for (const KeyParameter& parameter : parameters) {
        if (tagOf(parameter) == Tag::ALGORITHM) {
            return parameter.f.integer == static_cast<uint32_t>(algorithm);
        }
    }
    return false;
}

KeyFormat parseFormat(const std::string& word) {
    if (word == "x509") return KeyFormat::X509;
    return word == "raw" ? KeyFormat::RAW : KeyFormat::PKCS8;
}

void addFormat(CLI::App& app, std::string& word, const std::string& help) {
    app.add_option("--format", word, help)
        ->type_name("x509|pkcs8|raw")
        ->check(CLI::IsMember({"x509", "pkcs8", "raw"}));
}

KeyFormat importFormat(const std::string& word, const std::vector<KeyParameter>& parameters) {
    if (!word.empty()) return parseFormat(word);
    const bool pair =
        isAlgorithm(parameters, Algorithm::RSA) || isAlgorithm(parameters, Algorithm::EC);
    return pair ? KeyFormat::PKCS8 : KeyFormat::RAW;
}

void MaskingKey::declare(CLI::App& app) {
    app.add_option("--masking-key", text_,
                   "32 bytes that mask the transport key; hex: shows them to every user of "
                   "the machine, file: does not")
        ->type_name("file:PATH|hex:HEX")
        ->default_str("all zero");
}

Bytes MaskingKey::bytes() const {
    if (text_.empty()) return Bytes(kMaskingKeyBytes);
    // Text would only hide a forgotten prefix. It is not repeated, as it may be the secret.
    if (text_.rfind("file:", 0) != 0 && text_.rfind("hex:", 0) != 0) {
        throw Failure(Exit::usage,
                      "--masking-key: it begins with neither file: nor hex:; give file:PATH of a "
                      "binary file, or hex:HEX");
    }
    Bytes bytes = parseBytes("--masking-key", text_);
    if (bytes.size() == kMaskingKeyBytes) return bytes;
    throw Failure(Exit::usage, "--masking-key: it has " + std::to_string(bytes.size()) +
                                   " bytes and needs " + std::to_string(kMaskingKeyBytes) +
                                   "; give file:PATH of a binary file, or hex:HEX");
}

}  // namespace lumo::cli
