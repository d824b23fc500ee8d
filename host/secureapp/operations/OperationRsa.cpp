#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/rsa.h>

#include <algorithm>

#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"
#include "secureapp/crypto/CryptoCalls.h"
#include "secureapp/crypto/CryptoPtr.h"
#include "secureapp/crypto/Digest.h"
#include "secureapp/crypto/PrivateKey.h"
#include "secureapp/crypto/RsaOaep.h"
#include "secureapp/operations/OperationParts.h"

namespace lumo::secureapp {
namespace {

// What PKCS#1 v1.5 needs beside the data: 00, the block type, eight filler bytes and 00.
constexpr size_t kPkcs1Overhead = 11;

bool isSignature(uint32_t purpose) {
    return purpose == KM_PURPOSE_SIGN || purpose == KM_PURPOSE_VERIFY;
}

// What PSS and OAEP need: two digests and two more bytes (RFC 8017, 7.1.1 and 9.1.1). In OAEP that
// is beside the message.
size_t encodingOverhead(uint32_t digest) {
    return 2 * size_t{digestBits(digest) / 8} + 2;
}

uint32_t choosePadding(const OperationRequest& request) {
    const uint64_t padding =
        onlyValue(request.params, KM_TAG_PADDING, KM_ERROR_UNSUPPORTED_PADDING_MODE);
    const bool usable =
        padding == KM_PAD_NONE ||
        (isSignature(request.purpose)
             ? padding == KM_PAD_RSA_PSS || padding == KM_PAD_RSA_PKCS1_1_5_SIGN
             : padding == KM_PAD_RSA_OAEP || padding == KM_PAD_RSA_PKCS1_1_5_ENCRYPT);
    if (!usable) {
        refuse(KM_ERROR_UNSUPPORTED_PADDING_MODE, "RSA does not ",
               valueWord(KM_TAG_PURPOSE, request.purpose), " with padding ",
               valueWord(KM_TAG_PADDING, padding));
    }
    request.requireListed(KM_TAG_PADDING, padding, KM_ERROR_INCOMPATIBLE_PADDING_MODE);
    return static_cast<uint32_t>(padding);
}

// The digest of a signature or of OAEP. Other encryption needs none and gets KM_DIGEST_NONE.
uint32_t chooseRsaDigest(const OperationRequest& request, uint32_t padding, size_t key_bytes) {
    if (!isSignature(request.purpose) && padding != KM_PAD_RSA_OAEP) return KM_DIGEST_NONE;
    const uint32_t digest = chooseDigest(request);
    if (padding == KM_PAD_NONE && digest != KM_DIGEST_NONE) {
        refuse(KM_ERROR_INCOMPATIBLE_DIGEST, "RSA without padding goes with digest none, not ",
               valueWord(KM_TAG_DIGEST, digest));
    }
    if (padding == KM_PAD_RSA_PSS || padding == KM_PAD_RSA_OAEP) {
        if (digest == KM_DIGEST_NONE) {
            refuse(KM_ERROR_INCOMPATIBLE_DIGEST, "padding ", valueWord(KM_TAG_PADDING, padding),
                   " needs a digest other than none");
        }
        if (key_bytes < encodingOverhead(digest)) {
            refuse(KM_ERROR_INCOMPATIBLE_DIGEST, "padding ", valueWord(KM_TAG_PADDING, padding),
                   " with digest ", valueWord(KM_TAG_DIGEST, digest), " takes ",
                   encodingOverhead(digest), " bytes, the key has ", key_bytes);
        }
    }
    return digest;
}

// Every failure behind the private operation is this one, so that none reveals the padding.
[[noreturn]] void refuseCiphertext() {
    refuse(KM_ERROR_UNKNOWN_ERROR, "the ciphertext was not made for this key with this padding");
}

// The content of a type 2 block: 00 02, at least eight bytes other than 00, 00, content. Written
// out, because a libcrypto may answer bad padding with random content; does not branch on bytes.
Bytes contentOfEncryptionBlock(const Bytes& block) {
    uint32_t bad = static_cast<uint32_t>(block[0]) | (block[1] ^ 2u);
    uint32_t searching = 1;
    size_t end_of_filler = 0;
    for (size_t i = 2; i < block.size(); ++i) {
        const uint32_t is_zero = (static_cast<uint32_t>(block[i]) - 1u) >> 31;
        end_of_filler |= i & (size_t{0} - (searching & is_zero));
        searching &= ~is_zero;
    }
    if (bad != 0 || end_of_filler < kPkcs1Overhead - 1) refuseCiphertext();
    return ByteView(block).sub(end_of_filler + 1).copy();
}

class RsaOperation : public Operation {
  public:
    RsaOperation(uint32_t purpose, CryptoPtr<EVP_PKEY> key, uint32_t padding, uint32_t digest)
        : purpose_(purpose),
          padding_(padding),
          digest_(digest),
          key_(std::move(key)),
          modulus_(static_cast<size_t>(EVP_PKEY_size(key_.get()))),
          message_(isSignature(purpose) ? digest : uint32_t{KM_DIGEST_NONE}, maxMessage()) {
        const BIGNUM* n = RSA_get0_n(EVP_PKEY_get0_RSA(key_.get()));
        requireCrypto(BN_bn2binpad(n, modulus_.data(), EVP_PKEY_size(key_.get())) >= 0,
                      "write an RSA modulus");
    }

    void update(const ParamSet&, ByteView input, Bytes&) override { add(input); }

    Bytes finish(const ParamSet&, ByteView input, ByteView signature) override {
        add(input);
        const Bytes message = message_.finish();
        switch (purpose_) {
            case KM_PURPOSE_SIGN:
                return digest_ == KM_DIGEST_NONE ? signBlock(message) : signDigest(message);
            case KM_PURPOSE_VERIFY:
                verify(message, signature);
                return {};
            case KM_PURPOSE_ENCRYPT:
                return encrypt(message);
            default:
                return decrypt(message);
        }
    }

  private:
    void add(ByteView input) {
        message_.add(input);
        // No signature fits a message that is too long, so it does not verify.
        if (message_.overflowed() && purpose_ != KM_PURPOSE_VERIFY) {
            refuse(KM_ERROR_INVALID_INPUT_LENGTH, "the data is longer than ", maxMessage(),
                   " bytes, the most for this key and padding");
        }
    }

    size_t keyBytes() const { return modulus_.size(); }

    // The longest message that can be processed; unused where it is hashed.
    size_t maxMessage() const {
        if (purpose_ == KM_PURPOSE_DECRYPT) return keyBytes();
        switch (padding_) {
            case KM_PAD_RSA_PKCS1_1_5_SIGN:
            case KM_PAD_RSA_PKCS1_1_5_ENCRYPT:
                return keyBytes() - kPkcs1Overhead;
            case KM_PAD_RSA_OAEP:
                return keyBytes() - encodingOverhead(digest_);
            default:
                return keyBytes();
        }
    }

    // `block` is as long as the key.
    bool belowModulus(ByteView block) const {
        return std::lexicographical_compare(block.begin(), block.end(), modulus_.begin(),
                                            modulus_.end());
    }

    Bytes paddedLeft(const Bytes& message) const {
        Bytes block(keyBytes() - message.size(), 0);
        block.insert(block.end(), message.begin(), message.end());
        return block;
    }

    // An undigested message as it is signed: zeros before it, or a type 1 block.
    Bytes signatureBlock(const Bytes& message) const {
        Bytes block = paddedLeft(message);
        if (padding_ == KM_PAD_NONE) return block;
        const size_t zero = block.size() - message.size() - 1;
        block[1] = 1;
        std::fill(block.begin() + 2, block.begin() + static_cast<ptrdiff_t>(zero), uint8_t{0xFF});
        return block;
    }

    Bytes rawPrivate(ByteView block) const {
        const auto context = rsaContext(key_.get(), EVP_PKEY_decrypt_init, RSA_NO_PADDING);
        return transform(EVP_PKEY_decrypt, key_.get(), context.get(), block);
    }

    Bytes rawPublic(ByteView block) const {
        const auto context = rsaContext(key_.get(), EVP_PKEY_encrypt_init, RSA_NO_PADDING);
        return transform(EVP_PKEY_encrypt, key_.get(), context.get(), block);
    }

    Bytes signBlock(const Bytes& message) const {
        const Bytes block = signatureBlock(message);
        if (!belowModulus(block)) {
            refuse(KM_ERROR_INVALID_ARGUMENT,
                   "the data to sign is a number above the key's modulus");
        }
        return rawPrivate(block);
    }

    // PSS: a salt as long as the digest, and MGF1 with the same digest.
    CryptoPtr<EVP_PKEY_CTX> digestContext(int (*init)(EVP_PKEY_CTX*)) const {
        const EVP_MD* md = evpDigest(digest_);
        const bool pss = padding_ == KM_PAD_RSA_PSS;
        auto context =
            rsaContext(key_.get(), init, pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING);
        requireCrypto(EVP_PKEY_CTX_set_signature_md(context.get(), md) == 1,
                      "set a signature's digest");
        if (!pss) return context;
        requireCrypto(EVP_PKEY_CTX_set_rsa_pss_saltlen(context.get(),
                                                       static_cast<int>(EVP_MD_size(md))) == 1 &&
                          EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), md) == 1,
                      "set salt and mask of PSS");
        return context;
    }

    Bytes signDigest(ByteView digest) const {
        const auto context = digestContext(EVP_PKEY_sign_init);
        return transform(EVP_PKEY_sign, key_.get(), context.get(), digest);
    }

    void verify(const Bytes& message, ByteView signature) const {
        if (signature.size() != keyBytes() || !belowModulus(signature) || message_.overflowed()) {
            refuse(KM_ERROR_VERIFICATION_FAILED, "no RSA signature of ", signature.size(),
                   " bytes with this padding can fit a key of ", keyBytes(), " and this data");
        }
        const bool good =
            digest_ == KM_DIGEST_NONE
                ? rawPublic(signature) == signatureBlock(message)
                : verifies(digestContext(EVP_PKEY_verify_init).get(), signature, message);
        if (!good) {
            refuse(KM_ERROR_VERIFICATION_FAILED,
                   "the RSA signature does not fit the data, this key, digest and padding");
        }
    }

    Bytes encrypt(const Bytes& message) const {
        if (padding_ != KM_PAD_NONE) return encryptPadded(message);
        const Bytes block = paddedLeft(message);
        if (!belowModulus(block)) {
            refuse(KM_ERROR_INVALID_ARGUMENT,
                   "the data to encrypt is a number above the key's modulus");
        }
        return rawPublic(block);
    }

    // OAEP's mask is made with SHA-1, whatever its digest, and the label is empty.
    Bytes encryptPadded(ByteView message) const {
        const bool oaep = padding_ == KM_PAD_RSA_OAEP;
        const auto context = rsaContext(key_.get(), EVP_PKEY_encrypt_init,
                                        oaep ? RSA_PKCS1_OAEP_PADDING : RSA_PKCS1_PADDING);
        if (oaep) {
            requireCrypto(EVP_PKEY_CTX_set_rsa_oaep_md(context.get(), evpDigest(digest_)) == 1 &&
                              EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), EVP_sha1()) == 1,
                          "set digest and mask to encrypt with OAEP");
        }
        return transform(EVP_PKEY_encrypt, key_.get(), context.get(), message);
    }

    Bytes decrypt(const Bytes& ciphertext) const {
        const bool whole = ciphertext.size() == keyBytes();
        if (padding_ == KM_PAD_NONE) {
            if (!whole) {
                refuse(KM_ERROR_INVALID_INPUT_LENGTH, "the ciphertext has ", ciphertext.size(),
                       " bytes, the key has ", keyBytes());
            }
            if (!belowModulus(ciphertext)) {
                refuse(KM_ERROR_INVALID_ARGUMENT,
                       "the ciphertext is a number above the key's "
                       "modulus");
            }
            return rawPrivate(ciphertext);
        }
        if (!whole || !belowModulus(ciphertext)) refuseCiphertext();
        if (padding_ == KM_PAD_RSA_PKCS1_1_5_ENCRYPT) {
            return contentOfEncryptionBlock(rawPrivate(ciphertext));
        }
        std::optional<Bytes> message = rsaOaepDecrypt(key_.get(), digest_, ciphertext);
        if (!message) refuseCiphertext();
        return std::move(*message);
    }

    uint32_t purpose_;
    uint32_t padding_;
    uint32_t digest_;
    CryptoPtr<EVP_PKEY> key_;
    Bytes modulus_;  // big-endian
    MessageCollector message_;
};

}  // namespace

std::unique_ptr<Operation> startRsa(const OperationRequest& request) {
    const uint32_t padding = choosePadding(request);
    CryptoPtr<EVP_PKEY> key = openPrivateKey(request.material);
    const size_t key_bytes = static_cast<size_t>(EVP_PKEY_size(key.get()));
    const uint32_t digest = chooseRsaDigest(request, padding, key_bytes);
    return std::make_unique<RsaOperation>(request.purpose, std::move(key), padding, digest);
}

}  // namespace lumo::secureapp
