#include "BootState.h"

#include <android-base/properties.h>

#include <algorithm>

#include "Failure.h"
#include "TagOptions.h"

namespace lumo::cli {

namespace {

using km::V4_0::Algorithm;
using km::V4_0::EcCurve;
using km::V4_0::KeyPurpose;

constexpr const char* kStates[] = {"verified", "self-signed", "unverified", "failed"};
constexpr const char* kColours[] = {"green", "yellow", "orange", "red"};  // of the same states

// [704] of a key description: the root of trust, in definite DER lengths of one byte.
constexpr uint8_t kRootOfTrust[] = {0xBF, 0x85, 0x40};
constexpr uint8_t kSequence = 0x30, kBytes = 0x04, kBoolean = 0x01, kEnumerated = 0x0A;

// Reads elements of DER one behind the other; empty once one is not as wanted.
class Elements {
  public:
    Elements(const uint8_t* at, const uint8_t* end) : at_(at), end_(end) {}

    Bytes next(uint8_t tag) {
        const bool fits =
            end_ - at_ >= 2 && at_[0] == tag && at_[1] < 0x80 && at_[1] <= end_ - at_ - 2;
        if (!fits) {
            end_ = at_;
            return {};
        }
        const uint8_t* content = at_ + 2;
        at_ = content + at_[1];
        return Bytes(content, at_);
    }

  private:
    const uint8_t* at_;
    const uint8_t* end_;
};

std::optional<BootState> parseRootOfTrust(const uint8_t* at, const uint8_t* end) {
    if (at == end || *at >= 0x80) return std::nullopt;  // the length of the explicit tag
    const Bytes fields = Elements(at + 1, end).next(kSequence);
    Elements elements(fields.data(), fields.data() + fields.size());
    elements.next(kBytes);  // the key that verified the system
    const Bytes locked = elements.next(kBoolean);
    const Bytes state = elements.next(kEnumerated);
    const Bytes hash = elements.next(kBytes);
    if (locked.size() != 1 || state.size() != 1 || state[0] >= std::size(kStates) || hash.empty()) {
        return std::nullopt;
    }
    return BootState{locked[0] != 0, state[0], hash};
}

}  // namespace

std::optional<BootState> attestedBootState(const sp<Device>& device) {
    const hidl_vec<KeyParameter> key = {
        makeEnum(Tag::ALGORITHM, static_cast<uint32_t>(Algorithm::EC)),
        makeEnum(Tag::EC_CURVE, static_cast<uint32_t>(EcCurve::P_256)),
        makeEnum(Tag::PURPOSE, static_cast<uint32_t>(KeyPurpose::SIGN)),
        makeBool(Tag::NO_AUTH_REQUIRED)};
    const hidl_vec<KeyParameter> attestation = {
        makeBytes(Tag::ATTESTATION_CHALLENGE, {'i', 'n', 'f', 'o'}),
        makeBytes(Tag::ATTESTATION_APPLICATION_ID, {'i', 'n', 'f', 'o'})};
    HidlBytes blob;
    HidlBytes leaf;
    const std::string doing = "read the boot state out of an attestation";
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    device->generateKey(key, [&](ErrorCode code, const auto& made, const auto&) {
        error = code;
        blob = made;
    });
    require(doing, error);
    std::optional<Failure> unattested;
    try {
        device->attestKey(blob, attestation, [&](ErrorCode code, const auto& chain) {
            error = code;
            if (chain.size() != 0) leaf = chain[0];
        });
        require(doing, error);
    } catch (const Failure& failure) {
        unattested.emplace(failure);
    }
    device->deleteKey(blob);
    if (unattested) throw Failure(*unattested);
    const uint8_t* const begin = leaf.data();
    const uint8_t* const end = begin + leaf.size();
    const uint8_t* const found =
        std::search(begin, end, std::begin(kRootOfTrust), std::end(kRootOfTrust));
    if (leaf.size() == 0 || found == end) return std::nullopt;
    return parseRootOfTrust(found + std::size(kRootOfTrust), end);
}

std::vector<std::string> bootPropertyMismatches(const BootState& boot) {
    const std::pair<const char*, std::string> wanted[] = {
        {"ro.boot.verifiedbootstate", kColours[boot.state]},
        {"ro.boot.vbmeta.device_state", boot.locked ? "locked" : "unlocked"},
        {"ro.boot.vbmeta.digest", toHex(boot.hash)},
    };
    std::vector<std::string> mismatches;
    for (const auto& [name, value] : wanted) {
        const std::string property = ::android::base::GetProperty(name, "");
        if (property.empty() || property == value) continue;
        std::string mismatch = name;
        mismatch.append(" is ").append(property).append(", the keymaster attests ").append(value);
        mismatches.push_back(std::move(mismatch));
    }
    return mismatches;
}

std::string toString(const BootState& boot) {
    return std::string(kStates[boot.state]) + (boot.locked ? ", locked" : ", unlocked");
}

}  // namespace lumo::cli
