#include "secureapp/operations/OperationParts.h"

#include <openssl/err.h>

#include <algorithm>

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"
#include "secureapp/crypto/CryptoCalls.h"
#include "secureapp/crypto/Digest.h"

namespace lumo::secureapp {
namespace {

bool digestSupported(const OperationRequest& request, uint64_t digest) {
    if (request.level == KM_SECURITY_LEVEL_STRONGBOX) {
        return digest == KM_DIGEST_NONE || digest == KM_DIGEST_SHA_2_256;
    }
    if (request.algorithm == KM_ALGORITHM_EC && digest == KM_DIGEST_MD5) return false;
    return digest <= KM_DIGEST_SHA_2_512;
}

}  // namespace

void OperationRequest::requireListed(keymaster_tag_t tag, uint64_t value,
                                     keymaster_error_t error) const {
    if (isPublicKeyOperation(purpose, algorithm) || authorizations.contains(tag, value)) return;
    refuse(error, tagName(tag), " ", valueWord(tag, value),
           " is not among the key's: ", valueWords(tag, authorizations.integers(tag)));
}

uint64_t onlyValue(const ParamSet& params, keymaster_tag_t tag, keymaster_error_t error) {
    if (params.count(tag) != 1) {
        refuse(error, "one ", tagName(tag),
               " is needed, given are: ", valueWords(tag, params.integers(tag)));
    }
    return params.find(tag)->integer;
}

uint32_t chooseDigest(const OperationRequest& request) {
    const uint64_t digest = onlyValue(request.params, KM_TAG_DIGEST, KM_ERROR_UNSUPPORTED_DIGEST);
    if (!digestSupported(request, digest)) {
        refuse(KM_ERROR_UNSUPPORTED_DIGEST, levelWord(request.level), " has no ",
               algorithmWord(request.algorithm), " operation with digest ",
               valueWord(KM_TAG_DIGEST, digest));
    }
    request.requireListed(KM_TAG_DIGEST, digest, KM_ERROR_INCOMPATIBLE_DIGEST);
    return static_cast<uint32_t>(digest);
}

size_t chooseMacBytes(const OperationRequest& request, uint32_t floor_bits, uint32_t max_bits) {
    const std::optional<uint64_t> bits = request.params.integer(KM_TAG_MAC_LENGTH);
    if (!bits) refuse(KM_ERROR_MISSING_MAC_LENGTH, "there is no MAC_LENGTH");
    if (*bits > max_bits || *bits % 8 != 0) {
        refuse(KM_ERROR_UNSUPPORTED_MAC_LENGTH, "MAC_LENGTH is ", *bits,
               ", here it is a multiple of 8 up to ", max_bits);
    }
    const uint64_t min_bits =
        request.authorizations.integer(KM_TAG_MIN_MAC_LENGTH).value_or(floor_bits);
    if (*bits < min_bits) {
        refuse(KM_ERROR_INVALID_MAC_LENGTH, "MAC_LENGTH ", *bits, " is below the key's least, ",
               min_bits);
    }
    return static_cast<size_t>(*bits / 8);
}

Bytes transform(KeyTransform run, EVP_PKEY* key, EVP_PKEY_CTX* context, ByteView in) {
    Bytes out(static_cast<size_t>(EVP_PKEY_size(key)));
    size_t out_len = out.size();
    requireCrypto(run(context, out.data(), &out_len, nonNull(in), in.size()) == 1,
                  "carry out an operation with a private or public key");
    out.resize(out_len);
    return out;
}

bool verifies(EVP_PKEY_CTX* context, ByteView signature, ByteView digest) {
    const bool good = EVP_PKEY_verify(context, nonNull(signature), signature.size(),
                                      nonNull(digest), digest.size()) == 1;
    ERR_clear_error();
    return good;
}

MessageCollector::MessageCollector(uint32_t digest, size_t limit) : limit_(limit) {
    const EVP_MD* md = evpDigest(digest);
    if (md == nullptr) return;
    hash_.reset(EVP_MD_CTX_new());
    requireCrypto(hash_ != nullptr && EVP_DigestInit_ex(hash_.get(), md, nullptr) == 1,
                  "begin the digest of a message");
}

void MessageCollector::add(ByteView input) {
    if (hash_ != nullptr) {
        requireCrypto(EVP_DigestUpdate(hash_.get(), nonNull(input), input.size()) == 1,
                      "go on with the digest of a message");
        return;
    }
    const size_t taken = std::min(input.size(), limit_ - stored_.size());
    stored_.insert(stored_.end(), input.begin(), input.begin() + taken);
    overflowed_ = overflowed_ || taken < input.size();
}

Bytes MessageCollector::finish() {
    if (hash_ == nullptr) return std::move(stored_);
    Bytes digest(EVP_MAX_MD_SIZE);
    unsigned int digest_len = 0;
    requireCrypto(EVP_DigestFinal_ex(hash_.get(), digest.data(), &digest_len) == 1,
                  "end the digest of a message");
    digest.resize(digest_len);
    return digest;
}

}  // namespace lumo::secureapp
