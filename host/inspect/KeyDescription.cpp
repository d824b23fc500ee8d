#include "inspect/KeyDescription.h"

#include <algorithm>

#include "inspect/DerFields.h"
#include "inspect/Parameters.h"
#include "inspect/Values.h"

namespace lumo::inspect {

namespace {

constexpr size_t kMaxChallengeBytes = 128;
constexpr size_t kUniqueIdBytes = 16;
constexpr uint64_t kStrongBox = 2;
constexpr uint32_t kAlgorithm = 2, kKeySize = 3, kEcCurve = 10;
constexpr uint64_t kEc = 3;

// What the attestation of every key has.
constexpr uint32_t kAlwaysThere[] = {kAlgorithm, 701, 702, 705, 706, 709};
constexpr uint32_t kRootOfTrust = 704;
constexpr uint32_t kDeviceUnique = 720;

class DescriptionReader {
  public:
    DescriptionReader(Window der, FaultList& faults)
        : faults_(faults), fields_(rule::kFields, rule::kDer, faults), outside_(der) {}

    KeyDescription read() {
        description_.where = outside_.rest();
        if (const auto sequence = fields_.takeWhole(outside_, "KeyDescription")) {
            fields_.expectEnd(outside_, "the SEQUENCE");
            readFields(DerReader(sequence->content));
        }
        return description_;
    }

  private:
    void note(const Rule& broken, Window where, const std::string& why,
              std::optional<uint32_t> tag = std::nullopt) {
        faults_.add(broken, where.offset(), why, tag);
    }

    Number number(DerReader& fields, DerNumber type, const char* name) {
        const auto element = fields_.take(fields, type, name);
        return element ? readUnsigned(*element, rule::kFields, faults_) : Number{};
    }

    Number level(DerReader& fields, const char* name) {
        const Number level = number(fields, kDerEnumerated, name);
        if (level.value && *level.value > kStrongBox) {
            note(rule::kLevels, level.where,
                 std::string(name) + " " + std::to_string(*level.value) + " is no security level");
        }
        return level;
    }

    Window bytes(DerReader& fields, const char* name, const Rule& broken, bool (*good)(size_t)) {
        const auto element = fields_.take(fields, kDerOctetString, name);
        if (!element) return {};
        const size_t size = element->content.size();
        if (!good(size)) note(broken, element->whole, "it has " + std::to_string(size) + " bytes");
        return element->content;
    }

    void readFields(DerReader fields) {
        KeyDescription& d = description_;
        d.version = number(fields, kDerInteger, "attestationVersion");
        d.level = level(fields, "attestationSecurityLevel");
        d.keymaster_version = number(fields, kDerInteger, "keymasterVersion");
        d.keymaster_level = level(fields, "keymasterSecurityLevel");
        d.challenge = bytes(fields, "attestationChallenge", rule::kChallenge,
                            [](size_t size) { return size <= kMaxChallengeBytes; });
        d.unique_id = bytes(fields, "uniqueId", rule::kUniqueId,
                            [](size_t size) { return size == 0 || size == kUniqueIdBytes; });
        d.software = list(fields, ListUse::software, "softwareEnforced");
        d.hardware = list(fields, ListUse::hardware, "hardwareEnforced");
        fields_.expectEnd(fields, "the eight fields");
        d.whole = !fields_.broken();
        checkVersions();
        if (d.whole) checkTogether();
    }

    void checkVersions() {
        const KeyDescription& d = description_;
        if (d.level.value && d.keymaster_level.value &&
            *d.level.value != *d.keymaster_level.value) {
            note(rule::kLevels, d.keymaster_level.where,
                 "it is " + std::to_string(*d.keymaster_level.value) + ", and " +
                     std::to_string(*d.level.value) + " is the attestation's");
        }
        if (!d.version.value) return;
        if (!d.version.is(3) && !d.version.is(4)) {
            note(rule::kVersion, d.version.where,
                 std::to_string(*d.version.value) + " is neither 3 nor 4");
            return;
        }
        const uint64_t expected = d.version.is(3) ? 4 : 41;
        if (!d.keymaster_version.value || d.keymaster_version.is(expected)) return;
        note(rule::kKeymasterVersion, d.keymaster_version.where,
             "it is " + std::to_string(*d.keymaster_version.value) + ", and " +
                 std::to_string(expected) + " goes with attestation version " +
                 std::to_string(*d.version.value));
    }

    AuthorizationList list(DerReader& fields, ListUse use, const char* name) {
        const auto element = fields_.take(fields, kDerSequence, name);
        if (!element) return {};
        ListRules rules;
        rules.use = use;
        if (description_.version.is(3)) rules.version = 3;
        if (description_.level.is(0)) rules.level = 0;
        return readAuthorizationList(element->content, rules, faults_);
    }

    const AuthorizationList& listFor(uint32_t number) const {
        const KeyDescription& d = description_;
        const bool software = d.level.is(0) || schemaField(number)->place == Place::software;
        return software ? d.software : d.hardware;
    }

    void checkTogether() {
        const KeyDescription& d = description_;
        for (const Authorization& entry : d.hardware.entries) {
            const Authorization* other = d.software.find(entry.number);
            if (other == nullptr) continue;
            note(rule::kOnce, entry.where,
                 "the software-enforced list has it too, at byte " +
                     std::to_string(other->where.offset()),
                 entry.number);
        }
        for (const uint32_t number : kAlwaysThere) {
            if (d.find(number) == nullptr) {
                note(rule::kRequired, listFor(number).where, "it is missing", number);
            }
        }
        if (d.integer(kAlgorithm) == kEc && d.find(kKeySize) == nullptr &&
            d.find(kEcCurve) == nullptr) {
            note(rule::kRequired, d.hardware.where, "an EC key has neither this nor ecCurve",
                 kKeySize);
        }
        if (!d.level.is(0) && d.hardware.find(kRootOfTrust) == nullptr) {
            note(rule::kRootPresent, d.hardware.where, "the hardware-enforced list lacks it",
                 kRootOfTrust);
        }
        const Authorization* unique = d.find(kDeviceUnique);
        if (unique != nullptr && !d.level.is(kStrongBox)) {
            note(rule::kPlace, unique->where, "only StrongBox attests with a key of the device",
                 kDeviceUnique);
        }
    }

    KeyDescription description_;
    FaultList& faults_;
    DerFields fields_;
    DerReader outside_;
};

std::string levelText(const Number& level) {
    constexpr uint32_t kHardwareTypeTag = 0x10000130U;  // its values are security levels
    return level.value ? numberText(kHardwareTypeTag, *level.value) : "not readable";
}

std::string textOf(const Number& number) {
    return number.value ? std::to_string(*number.value) : "not readable";
}

}  // namespace

const Authorization* KeyDescription::find(uint32_t number) const {
    const Authorization* found = hardware.find(number);
    return found != nullptr ? found : software.find(number);
}

std::optional<uint64_t> KeyDescription::integer(uint32_t number) const {
    const auto found = hardware.integer(number);
    return found ? found : software.integer(number);
}

KeyDescription readKeyDescription(Window der, FaultList& faults) {
    return DescriptionReader(der, faults).read();
}

Item describe(const KeyDescription& description) {
    const KeyDescription& d = description;
    Item item(d.where, "key description");
    item.add(Item(d.version.where, "attestationVersion", textOf(d.version)));
    item.add(Item(d.level.where, "attestationSecurityLevel", levelText(d.level)));
    item.add(Item(d.keymaster_version.where, "keymasterVersion", textOf(d.keymaster_version)));
    item.add(Item(d.keymaster_level.where, "keymasterSecurityLevel", levelText(d.keymaster_level)));
    item.add(Item(d.challenge, "attestationChallenge", bytesText(d.challenge)));
    item.add(Item(d.unique_id, "uniqueId", bytesText(d.unique_id)));
    item.add(describe(d.software, "softwareEnforced"));
    item.add(describe(d.hardware, "hardwareEnforced"));
    return item;
}

}  // namespace lumo::inspect
