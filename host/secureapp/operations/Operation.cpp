#include "secureapp/operations/Operation.h"

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"
#include "secureapp/crypto/Digest.h"
#include "secureapp/operations/OperationMac.h"
#include "secureapp/operations/OperationParts.h"

namespace lumo::secureapp {
namespace {

bool algorithmCanDo(uint32_t algorithm, uint32_t purpose) {
    const bool sign_or_verify = purpose == KM_PURPOSE_SIGN || purpose == KM_PURPOSE_VERIFY;
    const bool encrypt_or_decrypt = purpose == KM_PURPOSE_ENCRYPT || purpose == KM_PURPOSE_DECRYPT;
    switch (algorithm) {
        case KM_ALGORITHM_RSA:
            return sign_or_verify || encrypt_or_decrypt;
        case KM_ALGORITHM_EC:
        case KM_ALGORITHM_HMAC:
            return sign_or_verify;
        case KM_ALGORITHM_AES:
        case KM_ALGORITHM_TRIPLE_DES:
            return encrypt_or_decrypt;
        default:
            refuse(KM_ERROR_UNSUPPORTED_ALGORITHM, "the key is of unknown algorithm ", algorithm);
    }
}

std::unique_ptr<Operation> startEngine(const OperationRequest& request) {
    switch (request.algorithm) {
        case KM_ALGORITHM_RSA:
            return startRsa(request);
        case KM_ALGORITHM_EC:
            return startEc(request);
        case KM_ALGORITHM_HMAC:
            return startHmac(request);
        case KM_ALGORITHM_AES:
        case KM_ALGORITHM_TRIPLE_DES:
            return startCipher(request);
        default:
            refuse(KM_ERROR_UNSUPPORTED_ALGORITHM, "no operation has algorithm ",
                   request.algorithm);
    }
}

// A signature that is released only for data that the user confirmed: the confirmation token is a
// MAC, under the shared key, over this label and the data before any digest.
class ConfirmedOperation : public Operation {
  public:
    ConfirmedOperation(std::unique_ptr<Operation> signer, ByteView shared_key)
        : signer_(std::move(signer)), token_(KM_DIGEST_SHA_2_256, shared_key) {
        static const std::string label = "confirmation token";
        token_.add(Bytes(label.begin(), label.end()));
    }

    void update(const ParamSet& params, ByteView input, Bytes& out) override {
        token_.add(input);
        signer_->update(params, input, out);
    }

    Bytes finish(const ParamSet& params, ByteView input, ByteView signature) override {
        token_.add(input);
        if (!equalSecret(token_.finish(), params.bytes(kTagConfirmationToken))) {
            refuse(KM_ERROR_NO_USER_CONFIRMATION,
                   params.contains(kTagConfirmationToken)
                       ? "the confirmation token is not for this data, or of another boot"
                       : "the key signs what the user confirmed, and no confirmation token came");
        }
        return signer_->finish(params, input, signature);
    }

  private:
    std::unique_ptr<Operation> signer_;
    HmacStream token_;
};

}  // namespace

void checkPurpose(uint32_t purpose, const OpenedKey& key) {
    const uint32_t algorithm = key.algorithm();
    if (!algorithmCanDo(algorithm, purpose)) {
        refuse(KM_ERROR_UNSUPPORTED_PURPOSE, "no key of algorithm ", algorithmWord(algorithm),
               " is used with purpose ", valueWord(KM_TAG_PURPOSE, purpose));
    }
    // Anyone can use the public key, since it can be exported.
    if (isPublicKeyOperation(purpose, algorithm)) return;
    if (!key.authorizations.contains(KM_TAG_PURPOSE, purpose)) {
        refuse(KM_ERROR_INCOMPATIBLE_PURPOSE, "purpose ", valueWord(KM_TAG_PURPOSE, purpose),
               " is not among the key's: ",
               valueWords(KM_TAG_PURPOSE, key.authorizations.integers(KM_TAG_PURPOSE)));
    }
}

bool isPublicKeyOperation(uint32_t purpose, uint32_t algorithm) {
    return (algorithm == KM_ALGORITHM_RSA || algorithm == KM_ALGORITHM_EC) &&
           (purpose == KM_PURPOSE_ENCRYPT || purpose == KM_PURPOSE_VERIFY);
}

std::unique_ptr<Operation> startOperation(uint32_t purpose, const OpenedKey& key,
                                          const ParamSet& params, keymaster_security_level_t level,
                                          RandomSource& random, const Bytes& shared_key) {
    const OperationRequest request = {
        purpose, key.algorithm(), key.material.bytes(), key.authorizations, params, level, random};
    std::unique_ptr<Operation> operation = startEngine(request);
    const bool confirmed = purpose == KM_PURPOSE_SIGN &&
                           key.authorizations.contains(KM_TAG_TRUSTED_CONFIRMATION_REQUIRED);
    if (!confirmed) return operation;
    return std::make_unique<ConfirmedOperation>(std::move(operation), shared_key);
}

}  // namespace lumo::secureapp
