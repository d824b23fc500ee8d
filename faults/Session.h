// Every public method of the device core, called as a client would, over a real secure application.
#pragma once

#include <KeymasterHalDevice.h>

#include <functional>
#include <string>
#include <vector>

namespace lumo::faults {

using Bytes = std::vector<uint8_t>;

// One boot of a device with one service object. Everything that the calls hand out is released at
// once; what later calls need is kept as bytes.
class Session {
  public:
    // LUMO_TRANSPORT and LUMO_STATE_DIR say where.
    Session();

    struct Step {
        const char* name;
        // Without faults: what the call needs of the secure application beside the keys.
        std::function<void()> prepare;
        // The call with all its outputs; its result.
        std::function<int32_t()> call;
        // Without faults, whatever came of the call.
        std::function<void()> finish;
        int32_t wanted = 0;  // of the call without a fault
    };

    // In an order in which each call finds the keys that it needs. Repeated calls give the same.
    std::vector<Step> steps();

    // Unless 0: the allocation of the calls to come that fails, in the device core or below it.
    long failing_allocation = 0;
    // Whether the last call got as far.
    bool allocation_failed = false;

    // A call that needs nothing but a secure application in order.
    bool works();

  private:
    template <typename Call>
    int32_t measured(Call call);
    int32_t generate(const std::vector<keymaster_key_param_t>& params, Bytes& key);
    int32_t import(const std::vector<keymaster_key_param_t>& params, keymaster_key_format_t format,
                   const Bytes& data, Bytes& key);
    int32_t begin(keymaster_purpose_t purpose, const Bytes& key,
                  const std::vector<keymaster_key_param_t>& params);
    int32_t update(const Bytes& input);
    int32_t finish(const Bytes& input, const Bytes& signature, Bytes& output);
    void abort();

    keymasterdevice::KeymasterHalDevice device_;
    Bytes ec_, aes_, imported_, wrapping_, wrapped_;
    uint64_t handle_ = 0;
    Bytes signature_, output_;
};

}  // namespace lumo::faults
