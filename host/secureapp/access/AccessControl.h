// Who may use a key, when and how often: user authentication, device lock, dates, rates, counts and
// the button that proves presence. Everything here lasts until the next boot.
#pragma once

#include <map>

#include "secureapp/access/Tokens.h"
#include "secureapp/base/Environment.h"
#include "secureapp/base/Params.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::secureapp {

// What the rules of its key still require of a running operation.
struct Admission {
    Bytes key_id;
    bool authorized_by_handle = false;  // every call needs a token for its handle
    bool needs_presence = false;
    bool rate_limited = false;
    ParamSet authorizations;  // of the key; filled where a later call looks at them
};

class AccessControl {
  public:
    // `trusted_clock`: whether dates are enforced here.
    AccessControl(Clock& clock, bool trusted_clock);

    // The rules of begin; public-key operations are exempt and do not come here. Throws Refusal.
    // A token in `params` that unlocks the device unlocks it for later calls too.
    void checkBegin(uint32_t purpose, const OpenedKey& key, const ParamSet& params,
                    ByteView shared_key);

    // Counts the use, once the operation has started. Only after checkBegin.
    Admission admit(const OpenedKey& key);

    // The rules of update and finish. Throws Refusal.
    void checkUse(const Admission& admission, uint64_t handle, const ParamSet& params,
                  ByteView shared_key) const;

    // The operation has ended: finished, failed or aborted.
    void release(const Admission& admission);

    void lockDevice(bool password_only);

    // For the operation that waits for it; false where none does, and the press is lost.
    bool confirmPresence();
    // Whether an admitted operation still waits for the button.
    bool awaitsPresence(const Admission& admission) const {
        return admission.needs_presence && !presence_proven_;
    }

  private:
    struct Rate {
        uint64_t interval = 0;          // milliseconds
        std::optional<uint64_t> ended;  // when the last operation ended
        size_t running = 0;
    };

    void unlockWith(const std::optional<AuthToken>& token);
    std::string whyLocked(const std::optional<AuthToken>& token, const ParamSet& params) const;
    void checkAuthentication(const ParamSet& key, const std::optional<AuthToken>& token,
                             const ParamSet& params) const;
    void checkDates(uint32_t purpose, const ParamSet& key) const;
    void checkRate(const Bytes& id, const ParamSet& key);
    void checkUses(const Bytes& id, const ParamSet& key) const;
    bool elapsed(const Rate& rate) const;

    Clock& clock_;
    bool trusted_clock_;

    bool locked_ = false;
    bool password_only_ = false;
    uint64_t locked_at_ = 0;

    std::map<Bytes, Rate> rates_;     // by key id
    std::map<Bytes, uint64_t> uses_;  // by key id

    // There is one button, so one operation at a time may wait for it.
    bool presence_wanted_ = false;
    bool presence_proven_ = false;
};

}  // namespace lumo::secureapp
