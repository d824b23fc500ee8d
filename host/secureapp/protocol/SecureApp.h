// One secure application: a keymaster behind one of the two protocols.
#pragma once

#include <memory>
#include <mutex>

#include "secureapp/base/Environment.h"
#include "secureapp/base/Types.h"
#include "secureapp/keymaster/Keymaster.h"

namespace lumo::secureapp {

// Which secure application is played.
struct Profile {
    std::string name;
    bool legacy = false;
    uint32_t keymaster_version = 4;
    uint32_t ta_minor_version = 0;
    uint32_t hal_minor_version = 0;
    uint64_t blob_version = kBlobVersion4_1;
    bool date_support = true;         // false: the probe is answered with KM_ERROR_INVALID_TAG
    bool converts_ec_keys = true;     // false: takes EC private keys as records
    bool encodes_public_keys = true;  // false: gives public keys as their parts
};

// cbor, legacy-4, legacy-3, legacy-3-encoding; null for another name.
const Profile* findProfile(const std::string& name);
const std::vector<std::string>& profileNames();

struct CborReply {
    keymaster_error_t error = KM_ERROR_OK;
    Bytes body;
};

// The calls may come from several threads; they are carried out one at a time.
class SecureApp {
  public:
    SecureApp(const Profile& profile, keymaster_security_level_t level, const DeviceConfig& config,
              State& state, State& shared_state, Clock& clock, RandomSource& random);
    ~SecureApp();
    SecureApp(const SecureApp&) = delete;
    SecureApp& operator=(const SecureApp&) = delete;

    const Profile& profile() const;

    // Never throws and never looks outside the given bytes, whatever they hold.
    // `client` of this and the following calls tells apart who shares the application.
    CborReply handleCbor(uint32_t command, ByteView request, uint64_t client = 0);

    // A fixed-layout request. The answer goes into an area of `capacity` bytes, which the client
    // may have labelled beforehand: `area` is its start. Returns the bytes to put there; none when
    // not even a status fits.
    Bytes answerRecord(ByteView request, ByteView area, size_t capacity, uint64_t client = 0);

    // The client will not come again: aborts the operations that it left open.
    void endClient(uint64_t client);

    Keymaster& keymaster();

    // The user proves presence, as with a button of the device.
    void confirmPresence();

    // What failed last in the storage, in words; empty when nothing did.
    std::string lastStateFailure() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace lumo::secureapp
