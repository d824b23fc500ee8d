#include "secureapp/operations/OperationCipher.h"

#include <openssl/err.h>

#include <algorithm>

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"
#include "secureapp/crypto/CryptoCalls.h"

namespace lumo::secureapp {

CipherStream::CipherStream(const EVP_CIPHER* cipher, ByteView key, ByteView nonce, bool encrypt)
    : context_(EVP_CIPHER_CTX_new()) {
    requireCrypto(
        context_ != nullptr &&
            EVP_CipherInit_ex(context_.get(), cipher, nullptr, key.data(),
                              nonce.empty() ? nullptr : nonce.data(), encrypt ? 1 : 0) == 1,
        "begin a block cipher");
    EVP_CIPHER_CTX_set_padding(context_.get(), 0);
}

size_t CipherStream::blockBytes() const {
    return static_cast<size_t>(EVP_CIPHER_CTX_block_size(context_.get()));
}

void CipherStream::add(ByteView input, Bytes& out) {
    constexpr size_t kStepBytes = size_t{1} << 30;  // libcrypto counts in int
    size_t filled = out.size();
    if (blockBytes() == 1) {
        // Nothing is held back, so it can work in place: a copy serves both as input and as room.
        append(out, input);
        input = ByteView(out).sub(filled);
    } else {
        out.resize(filled + input.size() + blockBytes());
    }
    while (!input.empty()) {
        const ByteView step = input.sub(0, kStepBytes);
        int written = 0;
        requireCrypto(EVP_CipherUpdate(context_.get(), out.data() + filled, &written, step.data(),
                                       static_cast<int>(step.size())) == 1,
                      "go on with a block cipher");
        filled += static_cast<size_t>(written);
        input = input.sub(step.size());
    }
    out.resize(filled);
}

void CipherStream::addAssociatedData(ByteView data) {
    constexpr size_t kStepBytes = size_t{1} << 30;
    for (; !data.empty(); data = data.sub(kStepBytes)) {
        const ByteView step = data.sub(0, kStepBytes);
        int written = 0;
        requireCrypto(EVP_CipherUpdate(context_.get(), nullptr, &written, step.data(),
                                       static_cast<int>(step.size())) == 1,
                      "take associated data");
    }
}

bool CipherStream::finishes() {
    uint8_t unused[EVP_MAX_BLOCK_LENGTH];
    int written = 0;
    const bool good = EVP_CipherFinal_ex(context_.get(), unused, &written) == 1;
    ERR_clear_error();
    return good;
}

Bytes CipherStream::tag(size_t tag_bytes) {
    Bytes tag(tag_bytes);
    requireCrypto(finishes() && EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_GCM_GET_TAG,
                                                    static_cast<int>(tag_bytes), tag.data()) == 1,
                  "make an AES-GCM tag");
    return tag;
}

bool CipherStream::tagFits(ByteView tag) {
    Bytes copy = tag.copy();  // libcrypto's parameter is not const
    requireCrypto(EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_GCM_SET_TAG,
                                      static_cast<int>(copy.size()), copy.data()) == 1,
                  "take an AES-GCM tag");
    return finishes();
}

namespace {

constexpr uint32_t kMinGcmTagBits = 96;
constexpr uint32_t kMaxGcmTagBits = 128;

struct Mode {
    uint64_t mode;
    size_t nonce_bytes;
    bool pads;  // processes whole blocks, so PKCS7 padding applies
};
constexpr Mode kAesModes[] = {
    {KM_MODE_ECB, 0, true},
    {KM_MODE_CBC, 16, true},
    {KM_MODE_CTR, 16, false},
    {KM_MODE_GCM, 12, false},
};
constexpr Mode kTripleDesModes[] = {
    {KM_MODE_ECB, 0, true},
    {KM_MODE_CBC, 8, true},
};

struct Cipher {
    uint32_t algorithm;
    uint64_t mode;
    size_t key_bytes;
    const EVP_CIPHER* (*cipher)();
};
constexpr Cipher kCiphers[] = {
    {KM_ALGORITHM_AES, KM_MODE_ECB, 16, EVP_aes_128_ecb},
    {KM_ALGORITHM_AES, KM_MODE_ECB, 24, EVP_aes_192_ecb},
    {KM_ALGORITHM_AES, KM_MODE_ECB, 32, EVP_aes_256_ecb},
    {KM_ALGORITHM_AES, KM_MODE_CBC, 16, EVP_aes_128_cbc},
    {KM_ALGORITHM_AES, KM_MODE_CBC, 24, EVP_aes_192_cbc},
    {KM_ALGORITHM_AES, KM_MODE_CBC, 32, EVP_aes_256_cbc},
    {KM_ALGORITHM_AES, KM_MODE_CTR, 16, EVP_aes_128_ctr},
    {KM_ALGORITHM_AES, KM_MODE_CTR, 24, EVP_aes_192_ctr},
    {KM_ALGORITHM_AES, KM_MODE_CTR, 32, EVP_aes_256_ctr},
    {KM_ALGORITHM_AES, KM_MODE_GCM, 16, EVP_aes_128_gcm},
    {KM_ALGORITHM_AES, KM_MODE_GCM, 24, EVP_aes_192_gcm},
    {KM_ALGORITHM_AES, KM_MODE_GCM, 32, EVP_aes_256_gcm},
    {KM_ALGORITHM_TRIPLE_DES, KM_MODE_ECB, 24, EVP_des_ede3_ecb},
    {KM_ALGORITHM_TRIPLE_DES, KM_MODE_CBC, 24, EVP_des_ede3_cbc},
};

const EVP_CIPHER* findCipher(const OperationRequest& request, uint64_t mode) {
    for (const Cipher& row : kCiphers) {
        if (row.algorithm == request.algorithm && row.mode == mode &&
            row.key_bytes == request.material.size()) {
            return row.cipher();
        }
    }
    // No such key can be made.
    refuse(KM_ERROR_UNKNOWN_ERROR, "no cipher has keys of ", request.material.size(), " bytes");
}

template <size_t N>
const Mode& findMode(const Mode (&modes)[N], uint64_t mode) {
    const auto* row =
        std::find_if(modes, modes + N, [mode](const Mode& m) { return m.mode == mode; });
    if (row == modes + N) {
        refuse(KM_ERROR_UNSUPPORTED_BLOCK_MODE, "this algorithm has no block mode ",
               valueWord(KM_TAG_BLOCK_MODE, mode));
    }
    return *row;
}

const Mode& chooseMode(const OperationRequest& request) {
    const uint64_t mode =
        onlyValue(request.params, KM_TAG_BLOCK_MODE, KM_ERROR_UNSUPPORTED_BLOCK_MODE);
    const Mode& row = request.algorithm == KM_ALGORITHM_AES ? findMode(kAesModes, mode)
                                                            : findMode(kTripleDesModes, mode);
    request.requireListed(KM_TAG_BLOCK_MODE, mode, KM_ERROR_INCOMPATIBLE_BLOCK_MODE);
    return row;
}

uint64_t choosePadding(const OperationRequest& request, const Mode& mode) {
    const uint64_t padding =
        onlyValue(request.params, KM_TAG_PADDING, KM_ERROR_UNSUPPORTED_PADDING_MODE);
    if (padding != KM_PAD_NONE && padding != KM_PAD_PKCS7) {
        refuse(KM_ERROR_UNSUPPORTED_PADDING_MODE, "block ciphers have padding none and pkcs7, not ",
               valueWord(KM_TAG_PADDING, padding));
    }
    if (padding != KM_PAD_NONE && !mode.pads) {
        refuse(KM_ERROR_INCOMPATIBLE_PADDING_MODE, "block mode ",
               valueWord(KM_TAG_BLOCK_MODE, mode.mode), " goes with padding none, not ",
               valueWord(KM_TAG_PADDING, padding));
    }
    request.requireListed(KM_TAG_PADDING, padding, KM_ERROR_INCOMPATIBLE_PADDING_MODE);
    return padding;
}

// The caller's nonce or, when encrypting without one, a new one, which goes to `out_params`.
Bytes chooseNonce(const OperationRequest& request, const Mode& mode, ParamSet& out_params) {
    const bool encrypt = request.purpose == KM_PURPOSE_ENCRYPT;
    const Param* given = request.params.find(KM_TAG_NONCE);
    if (encrypt && given != nullptr && !request.authorizations.contains(KM_TAG_CALLER_NONCE)) {
        refuse(KM_ERROR_CALLER_NONCE_PROHIBITED,
               "a NONCE came to encrypt with, and the key has no CALLER_NONCE");
    }
    if (mode.nonce_bytes == 0) return {};
    if (given != nullptr) {
        if (given->bytes.size() != mode.nonce_bytes) {
            refuse(KM_ERROR_INVALID_NONCE, "the nonce has ", given->bytes.size(),
                   " bytes, block mode ", valueWord(KM_TAG_BLOCK_MODE, mode.mode), " takes ",
                   mode.nonce_bytes);
        }
        return given->bytes;
    }
    if (!encrypt) {
        refuse(KM_ERROR_MISSING_NONCE, "decrypting in block mode ",
               valueWord(KM_TAG_BLOCK_MODE, mode.mode), " needs a NONCE of ", mode.nonce_bytes,
               " bytes");
    }
    Bytes nonce = request.random.bytes(mode.nonce_bytes);
    out_params.add(bytesParam(KM_TAG_NONCE, nonce));
    return nonce;
}

// ECB, CBC and CTR.
class CipherOperation : public Operation {
  public:
    CipherOperation(CipherStream stream, const ParamSet& out_params) : stream_(std::move(stream)) {
        out_params_ = out_params;
    }

    void update(const ParamSet&, ByteView input, Bytes& out) override { process(input, out); }

    Bytes finish(const ParamSet&, ByteView input, ByteView) override {
        Bytes out;
        process(input, out);
        // For libcrypto CTR has blocks of one byte.
        if (partialBytes() != 0) {
            refuse(KM_ERROR_INVALID_INPUT_LENGTH, "without padding ", total(),
                   " bytes are no whole number of blocks of ", blockBytes());
        }
        return out;
    }

  protected:
    void process(ByteView input, Bytes& out) {
        total_ += input.size();
        stream_.add(input, out);
    }
    size_t blockBytes() const { return stream_.blockBytes(); }
    size_t partialBytes() const { return static_cast<size_t>(total_ % blockBytes()); }
    uint64_t total() const { return total_; }

  private:
    CipherStream stream_;
    uint64_t total_ = 0;
};

class Pkcs7Encryption : public CipherOperation {
  public:
    using CipherOperation::CipherOperation;

    Bytes finish(const ParamSet&, ByteView input, ByteView) override {
        Bytes out;
        process(input, out);
        const size_t missing = blockBytes() - partialBytes();
        process(Bytes(missing, static_cast<uint8_t>(missing)), out);
        return out;
    }
};

// Holds the last decrypted block back, since it may be the one with the padding.
class Pkcs7Decryption : public CipherOperation {
  public:
    using CipherOperation::CipherOperation;

    void update(const ParamSet&, ByteView input, Bytes& out) override {
        const size_t start = out.size();
        append(out, held_);
        process(input, out);
        const size_t keep = std::min(blockBytes(), out.size() - start);
        const auto cut = out.end() - static_cast<ptrdiff_t>(keep);
        held_.assign(cut, out.end());
        out.erase(cut, out.end());
    }

    Bytes finish(const ParamSet&, ByteView input, ByteView) override {
        Bytes out = std::move(held_);
        process(input, out);
        if (total() == 0 || partialBytes() != 0) {
            refuse(KM_ERROR_INVALID_INPUT_LENGTH, "a ciphertext of ", total(),
                   " bytes has no whole blocks of ", blockBytes());
        }
        out.resize(out.size() - paddingBytes(out));
        return out;
    }

  private:
    size_t paddingBytes(const Bytes& out) const {
        const size_t count = out.back();
        const bool possible = count >= 1 && count <= blockBytes();
        if (!possible || std::count(out.end() - static_cast<ptrdiff_t>(count), out.end(),
                                    out.back()) != static_cast<ptrdiff_t>(count)) {
            refuse(KM_ERROR_INVALID_ARGUMENT,
                   "what the ciphertext decrypts to does not end with PKCS#7 padding");
        }
        return count;
    }

    Bytes held_;
};

}  // namespace

std::unique_ptr<Operation> startCipher(const OperationRequest& request) {
    const bool encrypt = request.purpose == KM_PURPOSE_ENCRYPT;
    const Mode& mode = chooseMode(request);
    const uint64_t padding = choosePadding(request, mode);
    const bool gcm = mode.mode == KM_MODE_GCM;
    const size_t tag_bytes = gcm ? chooseMacBytes(request, kMinGcmTagBits, kMaxGcmTagBits) : 0;
    ParamSet out_params;
    const Bytes nonce = chooseNonce(request, mode, out_params);

    CipherStream stream(findCipher(request, mode.mode), request.material, nonce, encrypt);
    if (gcm) return makeGcmOperation(std::move(stream), encrypt, tag_bytes, out_params);
    if (padding == KM_PAD_NONE) {
        return std::make_unique<CipherOperation>(std::move(stream), out_params);
    }
    if (encrypt) return std::make_unique<Pkcs7Encryption>(std::move(stream), out_params);
    return std::make_unique<Pkcs7Decryption>(std::move(stream), out_params);
}

}  // namespace lumo::secureapp
