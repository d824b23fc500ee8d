// The rules that an attestation has to keep, by name. A fault names the rule that it breaks.
#pragma once

#include <string>

#include "inspect/Item.h"

namespace lumo::inspect {

// What the rules are called: "group.name". Scripts rely on the names.
struct Rule {
    const char* name;
    const char* says;
};

namespace rule {

// Of the chain.
inline constexpr Rule kLength = {"chain.length", "two certificates or more"};
inline constexpr Rule kForm = {"chain.form", "each is one X.509 certificate in DER"};
inline constexpr Rule kNames = {"chain.names", "each issuer is the next one's subject"};
inline constexpr Rule kSelfIssued = {"chain.self-issued", "the last one issued itself"};
inline constexpr Rule kSignatures = {"chain.signatures",
                                     "each is signed by the next one's key, the last by its own"};
inline constexpr Rule kDates = {"chain.dates", "each is valid at the date asked for"};
inline constexpr Rule kAuthority = {"chain.authority", "each issuer may issue certificates"};
inline constexpr Rule kKeyIds = {"chain.key-ids",
                                 "authority key ids are the issuers' subject key ids"};
inline constexpr Rule kOneDescription = {"chain.one-description",
                                         "the first one alone describes a key, and once"};
inline constexpr Rule kRoot = {"chain.root", "it ends in a certificate of --root"};

// Of the certified key's certificate.
inline constexpr Rule kLeafVersion = {"leaf.version", "X.509 version 3"};
inline constexpr Rule kLeafSerial = {"leaf.serial", "the serial number is 1"};
inline constexpr Rule kLeafSignature = {"leaf.signature", "signed over SHA-256, by RSA or ECDSA"};
inline constexpr Rule kLeafSubject = {"leaf.subject", "one name: CN=Android Keystore Key"};
inline constexpr Rule kLeafDates = {"leaf.dates", "validity follows from the key's dates"};
inline constexpr Rule kLeafUsage = {"leaf.key-usage", "key usage follows from the purposes"};
inline constexpr Rule kLeafKey = {"leaf.public-key",
                                  "the key is of the algorithm, size, curve and exponent told"};

// Of the key description.
inline constexpr Rule kDer = {"description.der", "tags and lengths in the fewest bytes"};
inline constexpr Rule kFields = {"description.fields", "eight fields of their types, in order"};
inline constexpr Rule kVersion = {"description.version", "attestation version 3 or 4"};
inline constexpr Rule kKeymasterVersion = {"description.keymaster-version",
                                           "4 beside version 3, 41 beside version 4"};
inline constexpr Rule kLevels = {"description.levels", "one known security level, told twice"};
inline constexpr Rule kChallenge = {"description.challenge", "a challenge of 128 bytes at most"};
inline constexpr Rule kUniqueId = {"description.unique-id", "empty or 16 bytes"};

// Of its lists of authorizations.
inline constexpr Rule kOrder = {"list.order", "tags stand in rising order"};
inline constexpr Rule kOnce = {"list.once", "no tag stands twice, in one list or in both"};
inline constexpr Rule kKnown = {"list.known", "every tag is one that the version attests"};
inline constexpr Rule kPlace = {"list.place", "every tag is in the list of who enforces it"};
inline constexpr Rule kType = {"list.type", "every value is of its tag's type"};
inline constexpr Rule kInteger = {"list.integer",
                                  "integers are not negative, minimal and not too large"};
inline constexpr Rule kSet = {"list.set", "sets are not empty, in order and without repetition"};
inline constexpr Rule kValue = {"list.value", "values are published ones, dates exist"};
inline constexpr Rule kRequired = {"list.required", "what every key has is there"};

// Of the root of trust.
inline constexpr Rule kRootPresent = {"root-of-trust.present",
                                      "it is there where hardware attests"};
inline constexpr Rule kRootShape = {"root-of-trust.shape", "four fields of their types, in order"};
inline constexpr Rule kRootState = {"root-of-trust.state", "a known boot state"};
inline constexpr Rule kRootKey = {"root-of-trust.key",
                                  "32 bytes, zeros exactly where nothing was verified"};
inline constexpr Rule kRootHash = {"root-of-trust.hash", "32 bytes"};

// What the caller expects.
inline constexpr Rule kWantChallenge = {"expected.challenge", "the challenge is the one given"};
inline constexpr Rule kWantApplication = {"expected.application-id",
                                          "the application id is the one given"};
inline constexpr Rule kWantLevel = {"expected.security-level", "the security level asked for"};
inline constexpr Rule kWantVersion = {"expected.attestation-version",
                                      "the attestation version asked for"};
inline constexpr Rule kWantBootState = {"expected.boot-state", "the boot state asked for"};
inline constexpr Rule kWantLocked = {"expected.boot-locked", "the boot loader's lock as asked for"};
inline constexpr Rule kWantBootKey = {"expected.boot-key", "the verified boot key given"};
inline constexpr Rule kWantBootHash = {"expected.boot-hash", "the verified boot hash given"};
inline constexpr Rule kWantPatchLevel = {"expected.os-patchlevel",
                                         "the OS patch level is not older than asked for"};
inline constexpr Rule kWantPublicKey = {"expected.public-key",
                                        "the certified key is the one given"};

}  // namespace rule

// Collects what is wrong with one certificate of a chain, or with bytes that stand alone.
class FaultList {
  public:
    explicit FaultList(std::vector<Fault>& faults, std::optional<size_t> certificate = std::nullopt)
        : faults_(faults), certificate_(certificate) {}

    void add(const Rule& broken, size_t byte, const std::string& why,
             std::optional<uint32_t> tag = std::nullopt) {
        faults_.push_back({broken.name, certificate_, byte, tag, why});
    }

  private:
    std::vector<Fault>& faults_;
    std::optional<size_t> certificate_;
};

}  // namespace lumo::inspect
