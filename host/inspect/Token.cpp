#include "inspect/Token.h"

#include <android/hardware/keymaster/4.0/types.h>

#include <nlohmann/json.hpp>

#include "inspect/Parameters.h"
#include "inspect/Values.h"

namespace lumo::inspect {

namespace {

constexpr size_t kMacBytes = 32;
constexpr uint32_t kAuthTypeTag = 0x100001F8;               // its values are authenticator types
constexpr uint32_t kHardwareTypeTag = 0x10000130;           // its values are security levels
constexpr uint64_t kCentury = 100ULL * 366 * 86400 * 1000;  // in milliseconds

void appendLittle(Bytes& bytes, uint64_t number, size_t width) {
    for (size_t i = 0; i < width; ++i) bytes.push_back(static_cast<uint8_t>(number >> (8 * i)));
}

// Takes fields of a packed record, one behind the other.
class TokenReader {
  public:
    explicit TokenReader(Window token) : token_(token) {}

    uint64_t little(size_t width) { return token_.little(begin(width), width); }
    uint64_t big(size_t width) { return token_.big(begin(width), width); }
    Window bytes(size_t size) { return token_.sub(begin(size), size); }

    // The field that was taken last.
    void show(const char* name, const std::string& value) {
        const Window where = token_.sub(last_, width_);
        found_.items.emplace_back(where, name, where.size() == width_ ? value : "cut off");
    }
    void fault(const std::string& why) {
        found_.faults.push_back({"", std::nullopt, token_.offset() + last_, std::nullopt, why});
    }
    void remark(const std::string& what) { found_.remarks.push_back(what); }

    void showMac(Window mac) {
        show("MAC", mac.empty() ? "none" : hexText(mac));
        if (mac.allZero()) remark("it is not signed");
    }
    void showTimestamp(uint64_t millis) {
        show("timestamp", std::to_string(millis) + " ms since the boot");
        // Nothing runs for that long; read from its other end it may be plausible.
        if (millis > kCentury)
            fault("the timestamp is over a hundred years; is its byte order right?");
    }

    Inspection finish(size_t wanted) {
        if (token_.size() != wanted) {
            found_.faults.push_back({"", std::nullopt, std::min(token_.size(), wanted),
                                     std::nullopt,
                                     "it has " + std::to_string(token_.size()) + " bytes, not " +
                                         std::to_string(wanted)});
        }
        return std::move(found_);
    }

  private:
    size_t begin(size_t width) {
        last_ += width_;
        width_ = width;
        return last_;
    }

    Window token_;
    size_t last_ = 0;
    size_t width_ = 0;
    Inspection found_;
};

}  // namespace

bool looksLikeAuthToken(Window bytes) {
    return bytes.size() == kAuthTokenBytes && bytes[0] == 0;
}

bool looksLikeVerificationToken(Window bytes) {
    const uint64_t mac = bytes.little(20, 4);
    return bytes.size() == kUnsignedVerificationTokenBytes + mac && (mac == 0 || mac == kMacBytes);
}

bool beginsLikeAuthToken(Window bytes) {
    constexpr size_t kTypeAt = 25, kTimestampAt = 29;
    const uint64_t type = bytes.big(kTypeAt, 4);
    const bool version_or_size = bytes.big(0, 1) == 0 || bytes.size() == kAuthTokenBytes;
    return bytes.has(kTimestampAt, 8) && bytes.size() < 2 * kAuthTokenBytes && version_or_size &&
           type != 0 && !isUnknownValue(kAuthTypeTag, type) &&
           bytes.big(kTimestampAt, 8) <= kCentury;
}

bool beginsLikeVerificationToken(Window bytes) {
    constexpr size_t kTimestampAt = 8, kLevelAt = 16, kMacLengthAt = 20;
    const uint64_t level = bytes.little(kLevelAt, 4);
    const uint64_t mac = bytes.little(kMacLengthAt, 4);
    return bytes.has(kMacLengthAt, 4) && bytes.size() < 2 * kVerificationTokenBytes && level != 0 &&
           !isUnknownValue(kHardwareTypeTag, level) && (mac == 0 || mac == kMacBytes) &&
           bytes.little(kTimestampAt, 8) <= kCentury;
}

std::optional<Bytes> verificationTokenOfJson(Window text) {
    using ::android::hardware::hidl_enum_range;
    using ::android::hardware::keymaster::V4_0::SecurityLevel;
    const auto object = nlohmann::json::parse(text.begin(), text.end(), nullptr, false);
    if (!object.is_object()) return std::nullopt;
    const auto textOf = [&object](const char* member) {
        const auto found = object.find(member);
        return found != object.end() && found->is_string() ? found->get<std::string>() : "";
    };
    const std::string id = textOf("challenge");
    const std::optional<Bytes> challenge = bytesOfHex(id.rfind("0x", 0) == 0 ? id.substr(2) : id);
    const std::optional<Bytes> mac = bytesOfHex(textOf("mac"));
    const auto timestamp = object.find("timestamp");
    const bool whole = challenge && challenge->size() == 8 && mac && timestamp != object.end() &&
                       timestamp->is_number_unsigned();
    if (!whole) return std::nullopt;
    uint64_t level = UINT32_MAX;
    for (const SecurityLevel each : hidl_enum_range<SecurityLevel>()) {
        if (toString(each) == textOf("securityLevel")) level = static_cast<uint64_t>(each);
    }
    Bytes token(challenge->rbegin(), challenge->rend());
    appendLittle(token, timestamp->get<uint64_t>(), 8);
    appendLittle(token, level, 4);
    appendLittle(token, mac->size(), 4);
    token.insert(token.end(), mac->begin(), mac->end());
    return token;
}

Inspection inspectAuthToken(Window token) {
    TokenReader reader(token);
    const uint64_t version = reader.little(1);
    reader.show("version", std::to_string(version));
    if (version != 0) reader.fault("the version is not 0");
    // These three are in the order of the authenticator's processor, little-endian on every device.
    reader.show("challenge", idText(reader.little(8)));
    reader.show("user id", idText(reader.little(8)));
    reader.show("authenticator id", idText(reader.little(8)));
    const uint64_t type = reader.big(4);
    reader.show("authenticator type", numberText(kAuthTypeTag, type));
    if (isUnknownValue(kAuthTypeTag, type)) {
        reader.fault("no authenticator has this type; it is big-endian, as the timestamp is");
    }
    reader.showTimestamp(reader.big(8));
    reader.showMac(reader.bytes(kMacBytes));
    return reader.finish(kAuthTokenBytes);
}

Inspection inspectVerificationToken(Window token) {
    TokenReader reader(token);
    reader.show("challenge", idText(reader.little(8)));
    reader.showTimestamp(reader.little(8));
    const uint64_t level = reader.little(4);
    reader.show("security level", numberText(kHardwareTypeTag, level));
    if (isUnknownValue(kHardwareTypeTag, level)) reader.fault("no keymaster has this level");
    const uint64_t length = reader.little(4);
    reader.show("length of the MAC", std::to_string(length));
    if (length != 0 && length != kMacBytes) reader.fault("a MAC has 32 bytes");
    reader.showMac(reader.bytes(length == 0 ? 0 : kMacBytes));
    return reader.finish(kUnsignedVerificationTokenBytes + (length == 0 ? 0 : kMacBytes));
}

}  // namespace lumo::inspect
