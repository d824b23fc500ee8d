// Calls of the service object, from HIDL to HIDL, over whatever transport is linked.
#pragma once

#include <Keymaster4Device.h>

#include "Params.h"

namespace lumo::bench {

using ::android::sp;
using ::android::hardware::keymaster::V4_0::HardwareAuthToken;
using ::android::hardware::keymaster::V4_0::IKeymasterDevice;
using ::android::hardware::keymaster::V4_0::VerificationToken;

// Generates the same key again and again.
class GenerateKeyCall {
  public:
    explicit GenerateKeyCall(size_t params = kUsualParams);
    void run();
    size_t characteristics() const { return characteristics_; }
    const hidl_vec<uint8_t>& blob() const { return blob_; }

  private:
    sp<IKeymasterDevice> device_;
    hidl_vec<KeyParameter> params_;
    hidl_vec<uint8_t> blob_;
    size_t characteristics_ = 0;
};

// Asks for the characteristics of a key with `params` parameters.
class CharacteristicsCall {
  public:
    explicit CharacteristicsCall(size_t params);
    void run();

  private:
    sp<IKeymasterDevice> device_;
    hidl_vec<uint8_t> blob_;
    hidl_vec<uint8_t> application_id_;
    hidl_vec<uint8_t> application_data_;
};

// The smallest exchange that needs neither key nor operation.
class SharingParametersCall {
  public:
    SharingParametersCall();
    void run();

  private:
    sp<IKeymasterDevice> device_;
};

// The key, nonce and input of every AES-256-GCM operation here.
std::vector<uint8_t> gcmKey();
std::vector<uint8_t> gcmNonce();
std::vector<uint8_t> gcmInput(size_t size);

// Encrypts the same `size` bytes again and again in one AES-GCM operation.
class UpdateCall {
  public:
    explicit UpdateCall(size_t size);
    ~UpdateCall();
    void run();
    // What the first update of the operation gave.
    const hidl_vec<uint8_t>& firstOutput() const { return first_output_; }

  private:
    sp<IKeymasterDevice> device_;
    uint64_t operation_ = 0;
    hidl_vec<uint8_t> input_;
    hidl_vec<uint8_t> first_output_;
    const hidl_vec<KeyParameter> no_params_;
    const HardwareAuthToken no_token_{};
    const VerificationToken no_verification_{};
};

}  // namespace lumo::bench
