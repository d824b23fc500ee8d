// One secure application: a keymaster behind one of the two protocols.
#pragma once

#include <memory>

#include "secureapp/base/DeviceConfig.h"
#include "secureapp/base/Environment.h"
#include "secureapp/base/Reply.h"
#include "secureapp/keymaster/Keymaster.h"
#include "secureapp/protocol/Profile.h"
#include "secureapp/protocol/Rehearsal.h"

namespace lumo::secureapp {

// The calls may come from several threads; they run one at a time. `client` distinguishes the
// clients that share the application.
class SecureApp {
  public:
    SecureApp(const Profile& profile, keymaster_security_level_t level, const DeviceConfig& config,
              State& state, State& shared_state, Clock& clock, RandomSource& random);
    ~SecureApp();
    SecureApp(const SecureApp&) = delete;
    SecureApp& operator=(const SecureApp&) = delete;

    const Profile& profile() const;

    // Neither throws nor looks outside the given bytes, whatever they hold.
    Reply exchangeCbor(uint32_t command, ByteView request, uint64_t client = 0);
    // A fixed-layout request. The answer is for an area of `capacity` bytes, which the client may
    // have prepared with offsets beforehand: `area` is its start.
    Reply exchangeRecord(ByteView request, ByteView area, size_t capacity, uint64_t client = 0);

    // The client has disconnected: aborts the operations that it left open.
    void endClient(uint64_t client);

    // Forgets what a boot does not keep: running operations, what was configured and agreed.
    void restart();

    // The user proves presence, as with a button of the device. False where no operation waits.
    bool confirmPresence();

    // What is rehearsed beside both protocols; see Rehearsal.h. As exchangeCbor.
    Reply rehearse(RehearsalCommand command, ByteView request);

    Keymaster& keymaster();

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace lumo::secureapp
