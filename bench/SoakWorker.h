// One client of a soak run: mixed operations through a service object of its own, each result
// checked.
#pragma once

#include <Keymaster4Device.h>

#include <random>
#include <string>
#include <vector>

#include "Params.h"
#include "SoakLedger.h"

namespace lumo::bench::soak {

using ::android::sp;
using ::android::hardware::keymaster::V4_0::ErrorCode;
using ::android::hardware::keymaster::V4_0::IKeymasterDevice;
using ::android::hardware::keymaster::V4_0::KeyFormat;
using ::android::hardware::keymaster::V4_0::KeyPurpose;
using Blob = std::vector<uint8_t>;
using Params = std::vector<keymaster_key_param_t>;

// A wrong result ends the process with a message. Only where the daemon may be restarted is a call
// allowed to fail with KM_ERROR_SECURE_HW_COMMUNICATION_FAILED.
class Worker {
  public:
    Worker(const std::string& name, Shared& shared, Ledger& ledger, bool interruptible,
           uint32_t seed);

    // Until the goal of all workers together is reached.
    void work();

    // Uses every key of the ledger once, and gives the number of those that are not as it says. The
    // number of keys looked at is added to `checked`.
    size_t audit(uint64_t& checked);
    // How many operations can be begun until the secure application refuses one.
    size_t freeSlots();
    // Makes an RSA key with `bits` bits.
    void generateRsa(uint32_t bits);
    void signOnce();

  private:
    struct Interrupted {};
    struct Begun {
        uint64_t handle = 0;
        Blob nonce;
    };

    void step();
    // Counts the call if its result is `wanted`.
    void expect(ErrorCode error, const char* call, ErrorCode wanted = ErrorCode::OK);
    void expectEqual(const Blob& result, const Blob& wanted, const char* call);

    Blob generate(KeyKind kind);
    Blob keyOf(KeyKind kind);
    void keep(KeyKind kind, const Blob& blob);
    void drop(KeyKind kind);
    ErrorCode open(KeyKind kind, const Blob& blob);

    Begun begin(KeyPurpose purpose, const Blob& key, const Params& params);
    Blob update(uint64_t handle, const Blob& input);
    Blob finish(uint64_t handle, const Blob& input, const Blob& signature = {});
    void signAndVerify(KeyKind kind, size_t size);

    void cipher();
    void mac() { signAndVerify(KeyKind::hmac, 1 + random_() % 4096); }
    void ec() { signAndVerify(KeyKind::ec, 1 + random_() % 4096); }
    void rsa();
    void replace(KeyKind kind);
    void replaceAes() { replace(KeyKind::aes); }
    void replaceHmac() { replace(KeyKind::hmac); }
    void replaceEc() { replace(KeyKind::ec); }
    void replaceRsa() { replace(KeyKind::rsa); }
    void replaceResistant() { replace(KeyKind::resistant); }
    void importWrapped() { replace(KeyKind::wrapped); }
    void attest();
    void exportKey();
    void characteristics();
    void sharing();
    void spoiled();
    void leaveOpen();

    std::string name_;
    Shared& shared_;
    Ledger& ledger_;
    bool interruptible_;
    std::mt19937 random_;
    sp<IKeymasterDevice> device_;
    Blob wrapping_key_;
    uint64_t left_open_ = 0;
};

}  // namespace lumo::bench::soak
