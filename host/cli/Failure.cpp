#include "Failure.h"

#include <string.h>

namespace lumo::cli {

namespace {

using ::android::hardware::keymaster::V4_1::ErrorCode;

struct Advice {
    ErrorCode error;
    const char* text;
};

// What to try, where the error's name alone does not say it.
constexpr Advice kAdvice[] = {
    {ErrorCode::UNSUPPORTED_PURPOSE, "keys of this algorithm cannot do that"},
    {ErrorCode::INCOMPATIBLE_PURPOSE,
     "the key was not made for that; lumokm characteristics lists its purposes"},
    {ErrorCode::UNSUPPORTED_ALGORITHM, "give --algorithm rsa, ec, aes, 3des or hmac"},
    {ErrorCode::INCOMPATIBLE_ALGORITHM, "use a key of another algorithm"},
    {ErrorCode::UNSUPPORTED_KEY_SIZE,
     "give a --size that the algorithm has at this security level; StrongBox has fewer"},
    {ErrorCode::UNSUPPORTED_BLOCK_MODE, "give one --mode that the algorithm has"},
    {ErrorCode::INCOMPATIBLE_BLOCK_MODE, "give a --mode that lumokm characteristics lists"},
    {ErrorCode::UNSUPPORTED_MAC_LENGTH, "give a --mac-length in bits, at most the MAC's full one"},
    {ErrorCode::UNSUPPORTED_PADDING_MODE, "give one --padding that suits the key and the command"},
    {ErrorCode::INCOMPATIBLE_PADDING_MODE, "give a --padding that lumokm characteristics lists"},
    {ErrorCode::UNSUPPORTED_DIGEST, "give one --digest that the key can use"},
    {ErrorCode::INCOMPATIBLE_DIGEST,
     "give a --digest that lumokm characteristics lists and that suits the padding"},
    {ErrorCode::UNSUPPORTED_KEY_FORMAT,
     "only RSA and EC keys have a public key, in format x509; they are imported from pkcs8, all "
     "others from raw"},
    {ErrorCode::INVALID_INPUT_LENGTH, "the data is longer or shorter than the parameters allow"},
    {ErrorCode::KEY_USER_NOT_AUTHENTICATED, "give a fresh token of the right user: --auth-token"},
    {ErrorCode::INVALID_OPERATION_HANDLE,
     "the operation has ended: finished, aborted, refused in a step, or left for too long"},
    {ErrorCode::VERIFICATION_FAILED,
     "key, data, signature or tag, or a parameter is not the one that it was made with"},
    {ErrorCode::TOO_MANY_OPERATIONS, "wait until other operations have ended"},
    {ErrorCode::UNEXPECTED_NULL_POINTER, "a file or the list of parameters is empty"},
    {ErrorCode::INVALID_KEY_BLOB,
     "give the unchanged key file of this state and security level, with the --app-id and "
     "--app-data it was made with"},
    {ErrorCode::INVALID_ARGUMENT, "check the values of the options and the form of the input"},
    {ErrorCode::INVALID_TAG, "leave the option out that does not belong to this command"},
    {ErrorCode::IMPORT_PARAMETER_MISMATCH,
     "leave --size, --curve and --exponent out, or give those of the imported key"},
    {ErrorCode::SECURE_HW_COMMUNICATION_FAILED,
     "see that the secure application runs and that LUMO_TRANSPORT names it"},
    {ErrorCode::SECURE_HW_BUSY, "try again"},
    {ErrorCode::MISSING_NONCE, "give the --nonce that the data was encrypted with"},
    {ErrorCode::INVALID_NONCE, "give a --nonce of 12 bytes for GCM, of one block for CBC and CTR"},
    {ErrorCode::MISSING_MAC_LENGTH, "give --mac-length in bits"},
    {ErrorCode::KEY_RATE_LIMIT_EXCEEDED, "wait; the key may not be used that often"},
    {ErrorCode::CALLER_NONCE_PROHIBITED, "leave --nonce out, or make the key with --caller-nonce"},
    {ErrorCode::KEY_MAX_OPS_EXCEEDED, "the key is used up until the secure application restarts"},
    {ErrorCode::INVALID_MAC_LENGTH, "give at least the key's MIN_MAC_LENGTH"},
    {ErrorCode::MISSING_MIN_MAC_LENGTH, "give --min-mac-length in bits"},
    {ErrorCode::UNSUPPORTED_MIN_MAC_LENGTH,
     "give a --min-mac-length in whole bytes: for GCM 96 to 128 bits, for HMAC 64 or more"},
    {ErrorCode::UNSUPPORTED_EC_CURVE,
     "give --curve p224, p256, p384 or p521; StrongBox has p256 alone"},
    {ErrorCode::KEY_REQUIRES_UPGRADE, "run lumokm upgrade on the key file"},
    {ErrorCode::ATTESTATION_CHALLENGE_MISSING, "give --challenge"},
    {ErrorCode::ATTESTATION_APPLICATION_ID_MISSING, "give --application-id"},
    {ErrorCode::CANNOT_ATTEST_IDS, "the ids are not the device's, or are destroyed"},
    {ErrorCode::ROLLBACK_RESISTANCE_UNAVAILABLE, "leave --rollback-resistance out"},
    {ErrorCode::HARDWARE_TYPE_UNAVAILABLE, "leave --hardware-type out, or give --strongbox"},
    {ErrorCode::NO_USER_CONFIRMATION, "give the --confirmation-token for this data"},
    {ErrorCode::DEVICE_LOCKED, "give a token that is newer than the lock: --auth-token"},
    {ErrorCode::EARLY_BOOT_ENDED, "such keys live until early boot ends; restart the device"},
    {ErrorCode::INVALID_OPERATION, "a storage key cannot be used in operations"},
    {ErrorCode::STORAGE_KEY_UNSUPPORTED, "leave --storage-key out"},
    {ErrorCode::UNIMPLEMENTED, "this security level or secure application does not offer it"},
    {ErrorCode::UNKNOWN_ERROR,
     "the input may be damaged or made with other parameters (RSA-OAEP takes MGF1 with SHA-1, "
     "whatever the digest); -v shows the library's log"},
};

std::string adviceFor(ErrorCode error) {
    for (const Advice& advice : kAdvice) {
        if (advice.error == error) return advice.text;
    }
    return "-v shows the library's log";
}

Exit statusOf(ErrorCode error) {
    if (error == ErrorCode::VERIFICATION_FAILED) return Exit::check;
    if (error == ErrorCode::SECURE_HW_COMMUNICATION_FAILED) return Exit::transport;
    return Exit::refused;
}

}  // namespace

const char* nameOf(Exit status) {
    switch (status) {
        case Exit::ok:
            return "ok";
        case Exit::other:
            return "other";
        case Exit::usage:
            return "usage";
        case Exit::refused:
            return "refused";
        case Exit::transport:
            return "transport";
        case Exit::check:
            return "check";
        case Exit::state:
            return "state";
    }
    return "other";
}

Failure keymasterFailure(const std::string& doing, ErrorCode error) {
    const std::string code = toString(error) + " (" + std::to_string(static_cast<int32_t>(error));
    return Failure(statusOf(error), "could not " + doing + ": " + code + "); " + adviceFor(error),
                   error);
}

Failure fileFailure(const std::string& action, const std::string& path, int error_number) {
    return Failure(Exit::other, "cannot " + action + " " + path + ": " + strerror(error_number));
}

}  // namespace lumo::cli
