#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/CryptoCalls.h"
#include "secureapp/crypto/CryptoPtr.h"
#include "secureapp/crypto/PrivateKey.h"
#include "secureapp/operations/OperationParts.h"

namespace lumo::secureapp {
namespace {

// ECDSA with DER signatures. Without a digest the data takes its place: libcrypto uses its leftmost
// bits, as many as the group order has, so bytes beyond those are not kept.
class EcOperation : public Operation {
  public:
    EcOperation(uint32_t purpose, CryptoPtr<EVP_PKEY> key, uint32_t digest)
        : purpose_(purpose), key_(std::move(key)), message_(digest, orderBytes()) {}

    void update(const ParamSet&, ByteView input, Bytes&) override { message_.add(input); }

    Bytes finish(const ParamSet&, ByteView input, ByteView signature) override {
        message_.add(input);
        const Bytes digest = message_.finish();
        if (purpose_ == KM_PURPOSE_SIGN) return sign(digest);
        const auto context = keyContext(key_.get(), EVP_PKEY_verify_init);
        if (!verifies(context.get(), signature, digest)) {
            refuse(KM_ERROR_VERIFICATION_FAILED, "the ECDSA signature of ", signature.size(),
                   " bytes does not fit the data and this key");
        }
        return {};
    }

  private:
    size_t orderBytes() const { return (static_cast<size_t>(EVP_PKEY_bits(key_.get())) + 7) / 8; }

    Bytes sign(ByteView digest) const {
        const auto context = keyContext(key_.get(), EVP_PKEY_sign_init);
        return transform(EVP_PKEY_sign, key_.get(), context.get(), digest);
    }

    uint32_t purpose_;
    CryptoPtr<EVP_PKEY> key_;
    MessageCollector message_;
};

}  // namespace

std::unique_ptr<Operation> startEc(const OperationRequest& request) {
    const uint32_t digest = chooseDigest(request);
    return std::make_unique<EcOperation>(request.purpose, openPrivateKey(request.material), digest);
}

}  // namespace lumo::secureapp
