#include "secureapp/access/AccessControl.h"

#include <algorithm>

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"

namespace lumo::secureapp {
namespace {

// How many keys are tracked at a time, for rates and for counts each; secure memory is small.
constexpr size_t kTrackedKeys = 64;
constexpr uint64_t kMillisPerSecond = 1000;
constexpr uint32_t kPassword = 1;  // a bit of the authenticator type

bool needsAuthentication(const ParamSet& key) {
    return key.contains(KM_TAG_USER_SECURE_ID) && !key.contains(KM_TAG_NO_AUTH_REQUIRED);
}

// Without a timeout every single call must be authorized, by the operation's handle.
bool isAuthorizedByHandle(const ParamSet& key) {
    return needsAuthentication(key) && !key.contains(KM_TAG_AUTH_TIMEOUT);
}

std::optional<AuthToken> tokenIn(const ParamSet& params, ByteView shared_key) {
    return openAuthToken(params.bytes(KM_TAG_AUTH_TOKEN), shared_key);
}

// Why `params` hold no valid token.
std::string missingToken(const ParamSet& params) {
    const ByteView record = params.bytes(KM_TAG_AUTH_TOKEN);
    const bool blank = std::all_of(record.begin(), record.end(), [](uint8_t b) { return b == 0; });
    return blank ? "there is none" : "its MAC is not of the HMAC key agreed on in this boot";
}

std::string idWords(const ParamSet& key) {
    std::string words;
    for (const uint64_t id : key.integers(KM_TAG_USER_SECURE_ID)) {
        words += (words.empty() ? "" : ", ") + hexWord(id);
    }
    return words;
}

// Refuses unless the key accepts the user and the authenticator type of the token. Id 0 means no
// user.
void requireToken(const std::optional<AuthToken>& token, const ParamSet& params,
                  const ParamSet& key) {
    if (!token) {
        refuse(KM_ERROR_KEY_USER_NOT_AUTHENTICATED,
               "the key needs a valid auth token: ", missingToken(params));
    }
    const auto lists = [&key](uint64_t id) {
        return id != 0 && key.contains(KM_TAG_USER_SECURE_ID, id);
    };
    if (!lists(token->user_id) && !lists(token->authenticator_id)) {
        refuse(KM_ERROR_KEY_USER_NOT_AUTHENTICATED, "the auth token is of user ",
               hexWord(token->user_id), " and authenticator ", hexWord(token->authenticator_id),
               ", the key is for ", idWords(key));
    }
    const uint64_t types = key.integer(KM_TAG_USER_AUTH_TYPE).value_or(0);
    if ((token->authenticator_type & types) == 0) {
        refuse(KM_ERROR_KEY_USER_NOT_AUTHENTICATED, "the auth token is of authenticator type ",
               hexWord(token->authenticator_type), ", the key accepts types ", hexWord(types));
    }
}

}  // namespace

AccessControl::AccessControl(Clock& clock, bool trusted_clock)
    : clock_(clock), trusted_clock_(trusted_clock) {}

void AccessControl::checkBegin(uint32_t purpose, const OpenedKey& key, const ParamSet& params,
                               ByteView shared_key) {
    const ParamSet& authorizations = key.authorizations;
    const std::optional<AuthToken> token = tokenIn(params, shared_key);
    unlockWith(token);
    if (locked_ && authorizations.contains(KM_TAG_UNLOCKED_DEVICE_REQUIRED)) {
        refuse(KM_ERROR_DEVICE_LOCKED, "the key needs an unlocked device, which was locked at ",
               locked_at_, " ms since the boot: ", whyLocked(token, params));
    }
    checkAuthentication(authorizations, token, params);
    checkDates(purpose, authorizations);
    checkRate(key.id, authorizations);
    checkUses(key.id, authorizations);
    if (authorizations.contains(kTagTrustedUserPresenceRequired) && presence_wanted_) {
        refuse(kErrorConcurrentProofOfPresenceRequested,
               "another operation waits for the button; finish or abort it first");
    }
}

Admission AccessControl::admit(const OpenedKey& key) {
    const ParamSet& authorizations = key.authorizations;
    Admission admission;
    admission.key_id = key.id;
    admission.authorized_by_handle = isAuthorizedByHandle(authorizations);
    if (admission.authorized_by_handle) admission.authorizations = authorizations;
    if (const auto seconds = authorizations.integer(KM_TAG_MIN_SECONDS_BETWEEN_OPS)) {
        Rate& rate = rates_[key.id];
        rate.interval = *seconds * kMillisPerSecond;
        ++rate.running;
        admission.rate_limited = true;
    }
    if (authorizations.contains(KM_TAG_MAX_USES_PER_BOOT)) ++uses_[key.id];
    if (authorizations.contains(kTagTrustedUserPresenceRequired)) {
        admission.needs_presence = true;
        presence_wanted_ = true;
        presence_proven_ = false;
    }
    return admission;
}

void AccessControl::checkUse(const Admission& admission, uint64_t handle, const ParamSet& params,
                             ByteView shared_key) const {
    if (admission.authorized_by_handle) {
        const std::optional<AuthToken> token = tokenIn(params, shared_key);
        requireToken(token, params, admission.authorizations);
        if (token->challenge != handle) {
            refuse(KM_ERROR_KEY_USER_NOT_AUTHENTICATED, "the auth token's challenge is ",
                   hexWord(token->challenge), ", the operation's handle is ", hexWord(handle),
                   "; a key without AUTH_TIMEOUT needs a token for each operation");
        }
    }
    if (awaitsPresence(admission)) {
        refuse(kErrorProofOfPresenceRequired,
               "the button was not pressed since the operation began");
    }
}

void AccessControl::release(const Admission& admission) {
    if (admission.rate_limited) {
        Rate& rate = rates_[admission.key_id];
        rate.ended = clock_.bootMillis();
        --rate.running;
    }
    if (admission.needs_presence) {
        presence_wanted_ = false;
        presence_proven_ = false;
    }
}

void AccessControl::lockDevice(bool password_only) {
    locked_ = true;
    password_only_ = password_only;
    locked_at_ = clock_.bootMillis();
}

bool AccessControl::confirmPresence() {
    if (!presence_wanted_ || presence_proven_) return false;
    presence_proven_ = true;
    return true;
}

// Any user's token counts here: it shows that the device was unlocked after it was locked.
void AccessControl::unlockWith(const std::optional<AuthToken>& token) {
    if (!locked_ || !token || token->timestamp <= locked_at_) return;
    if (password_only_ && (token->authenticator_type & kPassword) == 0) return;
    locked_ = false;
}

// Why a token did not unlock the device.
std::string AccessControl::whyLocked(const std::optional<AuthToken>& token,
                                     const ParamSet& params) const {
    if (!token) return "as to a valid auth token, " + missingToken(params);
    if (token->timestamp <= locked_at_) {
        return "the auth token is of " + std::to_string(token->timestamp) + " ms";
    }
    return "it unlocks with a password, and the auth token is of authenticator type " +
           hexWord(token->authenticator_type);
}

void AccessControl::checkAuthentication(const ParamSet& key, const std::optional<AuthToken>& token,
                                        const ParamSet& params) const {
    if (!needsAuthentication(key) || isAuthorizedByHandle(key)) return;
    const uint64_t timeout = key.integer(KM_TAG_AUTH_TIMEOUT).value_or(0) * kMillisPerSecond;
    const uint64_t now = clock_.bootMillis();
    requireToken(token, params, key);
    if (token->timestamp > now) {
        refuse(KM_ERROR_KEY_USER_NOT_AUTHENTICATED, "the auth token is of the future: of ",
               token->timestamp, " ms since the boot, it is ", now);
    }
    if (now - token->timestamp >= timeout) {
        refuse(KM_ERROR_KEY_USER_NOT_AUTHENTICATED, "the auth token is ", now - token->timestamp,
               " ms old, the key accepts it for ", timeout);
    }
}

void AccessControl::checkDates(uint32_t purpose, const ParamSet& key) const {
    if (!trusted_clock_) return;
    const uint64_t now = clock_.wallMillis();
    const uint64_t active = key.integer(KM_TAG_ACTIVE_DATETIME).value_or(0);
    if (now < active) {
        refuse(KM_ERROR_KEY_NOT_YET_VALID, "key is valid from ", timeWords(active), ", it is ",
               timeWords(now));
    }
    const bool originates = purpose == KM_PURPOSE_ENCRYPT || purpose == KM_PURPOSE_SIGN;
    const keymaster_tag_t end =
        originates ? KM_TAG_ORIGINATION_EXPIRE_DATETIME : KM_TAG_USAGE_EXPIRE_DATETIME;
    const uint64_t last = key.integer(end).value_or(UINT64_MAX);
    if (now > last) {
        refuse(KM_ERROR_KEY_EXPIRED, "key expired on ", timeWords(last), " (", tagName(end),
               "), it is ", timeWords(now));
    }
}

// The interval runs from the end of an operation; while one is running, others may begin.
void AccessControl::checkRate(const Bytes& id, const ParamSet& key) {
    const auto seconds = key.integer(KM_TAG_MIN_SECONDS_BETWEEN_OPS);
    if (!seconds) return;
    const auto found = rates_.find(id);
    if (found != rates_.end()) {
        if (!elapsed(found->second)) {
            refuse(KM_ERROR_KEY_RATE_LIMIT_EXCEEDED, "the key's last operation ended ",
                   clock_.bootMillis() - *found->second.ended,
                   " ms ago, MIN_SECONDS_BETWEEN_OPS is ", *seconds);
        }
        return;
    }
    for (auto each = rates_.begin(); each != rates_.end();) {
        const bool idle = each->second.running == 0 && elapsed(each->second);
        each = idle ? rates_.erase(each) : std::next(each);
    }
    if (rates_.size() >= kTrackedKeys) {
        refuse(KM_ERROR_TOO_MANY_OPERATIONS, kTrackedKeys,
               " keys with MIN_SECONDS_BETWEEN_OPS are waited for, which is the most; wait until "
               "one of them may be used again");
    }
}

void AccessControl::checkUses(const Bytes& id, const ParamSet& key) const {
    const auto most = key.integer(KM_TAG_MAX_USES_PER_BOOT);
    if (!most) return;
    const auto found = uses_.find(id);
    const uint64_t uses = found == uses_.end() ? 0 : found->second;
    if (uses >= *most) {
        refuse(KM_ERROR_KEY_MAX_OPS_EXCEEDED, "the key was used ", uses,
               " times since the boot, MAX_USES_PER_BOOT is ", *most);
    }
    if (found == uses_.end() && uses_.size() >= kTrackedKeys) {
        refuse(KM_ERROR_TOO_MANY_OPERATIONS, "the uses of ", kTrackedKeys,
               " keys with MAX_USES_PER_BOOT are counted, which is the most until the next boot");
    }
}

bool AccessControl::elapsed(const Rate& rate) const {
    return !rate.ended || clock_.bootMillis() - *rate.ended >= rate.interval;
}

}  // namespace lumo::secureapp
