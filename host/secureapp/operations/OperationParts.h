// What the engines behind Operation.h share. For the Operation*.cpp files only.
#pragma once

#include <openssl/evp.h>

#include <memory>

#include "secureapp/base/Environment.h"
#include "secureapp/base/Params.h"
#include "secureapp/crypto/CryptoPtr.h"
#include "secureapp/operations/Operation.h"

namespace lumo::secureapp {

// The request of begin, its purpose already checked. Borrows everything.
struct OperationRequest {
    uint32_t purpose;
    uint32_t algorithm;
    ByteView material;
    const ParamSet& authorizations;  // all of the key's
    const ParamSet& params;          // begin's
    keymaster_security_level_t level;
    RandomSource& random;

    // Refuses with `error` unless the key lists the value. Public-key operations need no
    // authorization.
    void requireListed(keymaster_tag_t tag, uint64_t value, keymaster_error_t error) const;
};

// The engines. Each checks its own parameters of begin.
std::unique_ptr<Operation> startRsa(const OperationRequest& request);
std::unique_ptr<Operation> startEc(const OperationRequest& request);
std::unique_ptr<Operation> startCipher(const OperationRequest& request);
std::unique_ptr<Operation> startHmac(const OperationRequest& request);

// The one value of the tag; `error` when it is missing or repeated.
uint64_t onlyValue(const ParamSet& params, keymaster_tag_t tag, keymaster_error_t error);

// The one DIGEST: supported by algorithm and level, then authorized.
uint32_t chooseDigest(const OperationRequest& request);

// MAC_LENGTH in bytes, between the key's minimum (`floor_bits` if it states none) and `max_bits`.
size_t chooseMacBytes(const OperationRequest& request, uint32_t floor_bits, uint32_t max_bits);

// Runs EVP_PKEY_sign, _encrypt or _decrypt; the output is at most EVP_PKEY_size bytes.
using KeyTransform = int (*)(EVP_PKEY_CTX*, uint8_t*, size_t*, const uint8_t*, size_t);
Bytes transform(KeyTransform run, EVP_PKEY* key, EVP_PKEY_CTX* context, ByteView in);

// Whether the signature fits the digest, under the settings of the context.
bool verifies(EVP_PKEY_CTX* context, ByteView signature, ByteView digest);

// The data of an asymmetric operation: hashed as it comes or, with KM_DIGEST_NONE, its first
// `limit` bytes kept.
class MessageCollector {
  public:
    MessageCollector(uint32_t digest, size_t limit);

    void add(ByteView input);
    // More than `limit` bytes came; never true when hashing.
    bool overflowed() const { return overflowed_; }
    // The digest, or the data that was kept. Once only, after everything was added.
    Bytes finish();

  private:
    CryptoPtr<EVP_MD_CTX> hash_;  // null: collecting
    size_t limit_;
    Bytes stored_;
    bool overflowed_ = false;
};

}  // namespace lumo::secureapp
