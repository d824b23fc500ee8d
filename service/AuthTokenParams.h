// An operation's parameters with its hardware auth token added.
#pragma once

#include <android/hardware/keymaster/4.0/types.h>
#include <hardware/keymaster_defs.h>
#include <keymaster/authorization_set.h>

namespace keymaster::V4_0 {

// The parameters, converted and copied, and behind them the token as a KM_TAG_AUTH_TOKEN of 69
// bytes: the packed hw_auth_token_t record with authenticator type and timestamp big-endian. The
// token is added even when it is empty; of a mac longer than the record's 32 bytes the first 32 go
// in.
class AuthTokenParams {
  public:
    AuthTokenParams(const ::android::hardware::hidl_vec<
                        ::android::hardware::keymaster::V4_0::KeyParameter>& params,
                    const ::android::hardware::keymaster::V4_0::HardwareAuthToken& token);

    // False when there was no memory for the copies.
    bool valid() const { return valid_; }
    const keymaster_key_param_set_t* get() const { return &set_; }

  private:
    ::keymaster::AuthorizationSet set_;
    bool valid_ = false;
};

}  // namespace keymaster::V4_0
