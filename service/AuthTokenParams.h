// An operation's parameters with its hardware auth token added.
#pragma once

#include <android/hardware/keymaster/4.0/types.h>
#include <hardware/keymaster_defs.h>
#include <keymaster/authorization_set.h>

namespace keymaster::V4_0 {

// A copy of the parameters, converted, and behind them the token as a KM_TAG_AUTH_TOKEN of 69
// bytes: the packed hw_auth_token_t record with authenticator type and timestamp big-endian,
// everything else in the device's byte order. The token is added even when it is empty. A shorter
// mac is followed by zeros; of a mac longer than the record's 32 bytes the first 32 are taken. The
// copies are wiped when they are released. The constructor throws std::bad_alloc.
class AuthTokenParams {
  public:
    AuthTokenParams(const ::android::hardware::hidl_vec<
                        ::android::hardware::keymaster::V4_0::KeyParameter>& params,
                    const ::android::hardware::keymaster::V4_0::HardwareAuthToken& token);

    // False when there was no memory for the copies.
    [[nodiscard]] bool valid() const { return valid_; }
    // The set, which is this object's.
    const keymaster_key_param_set_t* get() const { return &set_; }

  private:
    ::keymaster::AuthorizationSet set_;
    bool valid_ = false;
};

}  // namespace keymaster::V4_0
