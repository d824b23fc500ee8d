// One running operation: the parameters of begin checked, then data in and out.
#pragma once

#include <memory>

#include "secureapp/base/Environment.h"
#include "secureapp/base/Params.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::secureapp {

class Operation {
  public:
    virtual ~Operation() = default;

    // Consumes all of `input`, buffering what cannot be processed yet, and appends the output to
    // `out`, which may be a reply that has begun. Associated data in `params` comes before the
    // input. Throws Refusal; the caller then drops the operation and `out`.
    virtual void update(const ParamSet& params, ByteView input, Bytes& out) = 0;
    // `signature` is used only when verifying.
    virtual Bytes finish(const ParamSet& params, ByteView input, ByteView signature) = 0;

    // What begin returns: the nonce, when one was generated.
    const ParamSet& outParams() const { return out_params_; }

  protected:
    ParamSet out_params_;
};

// KM_ERROR_UNSUPPORTED_PURPOSE where the algorithm cannot do the purpose; INCOMPATIBLE_PURPOSE
// where the key does not list it (public-key operations are exempt). Comes before access control.
void checkPurpose(uint32_t purpose, const OpenedKey& key);

// True for ENCRYPT and VERIFY with an RSA or EC key, which need no authorization.
bool isPublicKeyOperation(uint32_t purpose, uint32_t algorithm);

// Checks block mode, padding, digest, MAC length and nonce against key and purpose, in the
// published order, and starts the operation. `shared_key` proves confirmation tokens of keys that
// require them.
std::unique_ptr<Operation> startOperation(uint32_t purpose, const OpenedKey& key,
                                          const ParamSet& params, keymaster_security_level_t level,
                                          RandomSource& random, const Bytes& shared_key);

}  // namespace lumo::secureapp
