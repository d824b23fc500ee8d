#include "secureapp/access/AccessControl.h"

#include <algorithm>

#include "secureapp/base/Refusal.h"

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

// Whether the key accepts the user and the authenticator type of the token. Id 0 means no user.
bool suits(const AuthToken& token, const ParamSet& key) {
    const auto lists = [&key](uint64_t id) {
        return id != 0 && key.contains(KM_TAG_USER_SECURE_ID, id);
    };
    const uint64_t types = key.integer(KM_TAG_USER_AUTH_TYPE).value_or(0);
    return (lists(token.user_id) || lists(token.authenticator_id)) &&
           (token.authenticator_type & types) != 0;
}

std::optional<AuthToken> tokenIn(const ParamSet& params, ByteView shared_key) {
    return openAuthToken(params.bytes(KM_TAG_AUTH_TOKEN), shared_key);
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
        refuse(KM_ERROR_DEVICE_LOCKED);
    }
    checkAuthentication(authorizations, token);
    checkDates(purpose, authorizations);
    checkRate(key.id, authorizations);
    checkUses(key.id, authorizations);
    if (authorizations.contains(kTagTrustedUserPresenceRequired) && presence_wanted_) {
        refuse(kErrorConcurrentProofOfPresenceRequested);
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
        if (!token || !suits(*token, admission.authorizations) || token->challenge != handle) {
            refuse(KM_ERROR_KEY_USER_NOT_AUTHENTICATED);
        }
    }
    if (awaitsPresence(admission)) refuse(kErrorProofOfPresenceRequired);
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

void AccessControl::checkAuthentication(const ParamSet& key,
                                        const std::optional<AuthToken>& token) const {
    if (!needsAuthentication(key) || isAuthorizedByHandle(key)) return;
    const uint64_t timeout = key.integer(KM_TAG_AUTH_TIMEOUT).value_or(0) * kMillisPerSecond;
    const uint64_t now = clock_.bootMillis();
    if (!token || !suits(*token, key) || token->timestamp > now ||
        now - token->timestamp >= timeout) {
        refuse(KM_ERROR_KEY_USER_NOT_AUTHENTICATED);
    }
}

void AccessControl::checkDates(uint32_t purpose, const ParamSet& key) const {
    if (!trusted_clock_) return;
    const uint64_t now = clock_.wallMillis();
    if (now < key.integer(KM_TAG_ACTIVE_DATETIME).value_or(0)) refuse(KM_ERROR_KEY_NOT_YET_VALID);
    const bool originates = purpose == KM_PURPOSE_ENCRYPT || purpose == KM_PURPOSE_SIGN;
    const keymaster_tag_t end =
        originates ? KM_TAG_ORIGINATION_EXPIRE_DATETIME : KM_TAG_USAGE_EXPIRE_DATETIME;
    if (now > key.integer(end).value_or(UINT64_MAX)) refuse(KM_ERROR_KEY_EXPIRED);
}

// The interval runs from the end of an operation; while one is running, others may begin.
void AccessControl::checkRate(const Bytes& id, const ParamSet& key) {
    const auto seconds = key.integer(KM_TAG_MIN_SECONDS_BETWEEN_OPS);
    if (!seconds) return;
    const auto found = rates_.find(id);
    if (found != rates_.end()) {
        if (!elapsed(found->second)) refuse(KM_ERROR_KEY_RATE_LIMIT_EXCEEDED);
        return;
    }
    for (auto each = rates_.begin(); each != rates_.end();) {
        const bool idle = each->second.running == 0 && elapsed(each->second);
        each = idle ? rates_.erase(each) : std::next(each);
    }
    if (rates_.size() >= kTrackedKeys) refuse(KM_ERROR_TOO_MANY_OPERATIONS);
}

void AccessControl::checkUses(const Bytes& id, const ParamSet& key) const {
    const auto most = key.integer(KM_TAG_MAX_USES_PER_BOOT);
    if (!most) return;
    const auto found = uses_.find(id);
    if ((found == uses_.end() ? 0 : found->second) >= *most) refuse(KM_ERROR_KEY_MAX_OPS_EXCEEDED);
    if (found == uses_.end() && uses_.size() >= kTrackedKeys) refuse(KM_ERROR_TOO_MANY_OPERATIONS);
}

bool AccessControl::elapsed(const Rate& rate) const {
    return !rate.ended || clock_.bootMillis() - *rate.ended >= rate.interval;
}

}  // namespace lumo::secureapp
