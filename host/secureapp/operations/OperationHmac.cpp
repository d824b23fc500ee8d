#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/CryptoCalls.h"
#include "secureapp/crypto/Digest.h"
#include "secureapp/operations/OperationMac.h"
#include "secureapp/operations/OperationParts.h"

namespace lumo::secureapp {

HmacStream::HmacStream(uint32_t digest, ByteView key) : context_(HMAC_CTX_new()) {
    const EVP_MD* md = evpDigest(digest);
    requireCrypto(context_ != nullptr && md != nullptr && key.size() <= UINT16_MAX,
                  "take an HMAC's digest and key");
    // BoringSSL and OpenSSL declare the length with different types; this one widens to both.
    const uint16_t key_bytes = static_cast<uint16_t>(key.size());
    requireCrypto(HMAC_Init_ex(context_.get(), nonNull(key), key_bytes, md, nullptr) == 1,
                  "begin an HMAC");
}

void HmacStream::add(ByteView data) {
    requireCrypto(HMAC_Update(context_.get(), nonNull(data), data.size()) == 1,
                  "go on with an HMAC");
}

Bytes HmacStream::finish() {
    Bytes mac(EVP_MAX_MD_SIZE);
    unsigned int mac_len = 0;
    requireCrypto(HMAC_Final(context_.get(), mac.data(), &mac_len) == 1, "end an HMAC");
    mac.resize(mac_len);
    return mac;
}

namespace {

constexpr uint32_t kMinMacBits = 64;

class HmacSign : public Operation {
  public:
    HmacSign(HmacStream mac, size_t mac_bytes) : mac_(std::move(mac)), mac_bytes_(mac_bytes) {}

    void update(const ParamSet&, ByteView input, Bytes&) override { mac_.add(input); }

    Bytes finish(const ParamSet&, ByteView input, ByteView) override {
        mac_.add(input);
        Bytes mac = mac_.finish();
        mac.resize(mac_bytes_);
        return mac;
    }

  private:
    HmacStream mac_;
    size_t mac_bytes_;
};

class HmacVerify : public Operation {
  public:
    HmacVerify(HmacStream mac, uint64_t min_bits) : mac_(std::move(mac)), min_bits_(min_bits) {}

    void update(const ParamSet&, ByteView input, Bytes&) override { mac_.add(input); }

    // The length of the signature decides how much of the MAC is compared.
    Bytes finish(const ParamSet&, ByteView input, ByteView signature) override {
        mac_.add(input);
        if (signature.size() < min_bits_ / 8) {
            refuse(KM_ERROR_INVALID_MAC_LENGTH, "the MAC to verify has ", signature.size() * 8,
                   " bits, the key takes ", min_bits_, " or more");
        }
        const Bytes mac = mac_.finish();
        if (!equalSecret(ByteView(mac).sub(0, signature.size()), signature)) {
            refuse(KM_ERROR_VERIFICATION_FAILED, "the MAC of ", signature.size(),
                   " bytes is not that of the data under this key");
        }
        return {};
    }

  private:
    HmacStream mac_;
    uint64_t min_bits_;
};

}  // namespace

std::unique_ptr<Operation> startHmac(const OperationRequest& request) {
    const uint32_t digest = chooseDigest(request);
    if (digest == KM_DIGEST_NONE) {
        refuse(KM_ERROR_UNSUPPORTED_DIGEST, "an HMAC needs a digest other than none");
    }

    // Verifying needs no MAC_LENGTH, but a wrong one is still an error.
    size_t mac_bytes = 0;
    const bool sign = request.purpose == KM_PURPOSE_SIGN;
    if (sign || request.params.contains(KM_TAG_MAC_LENGTH)) {
        mac_bytes = chooseMacBytes(request, kMinMacBits, digestBits(digest));
    }

    HmacStream mac(digest, request.material);
    if (sign) return std::make_unique<HmacSign>(std::move(mac), mac_bytes);
    const uint64_t min_bits =
        request.authorizations.integer(KM_TAG_MIN_MAC_LENGTH).value_or(kMinMacBits);
    return std::make_unique<HmacVerify>(std::move(mac), min_bits);
}

}  // namespace lumo::secureapp
