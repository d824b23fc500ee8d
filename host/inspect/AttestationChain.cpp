#include "inspect/AttestationChain.h"

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>

#include "inspect/Parameters.h"
#include "inspect/Values.h"

namespace lumo::inspect {

namespace {

constexpr uint64_t kRsa = 1, kEc = 3;
constexpr uint32_t kPurpose = 1, kAlgorithm = 2, kKeySize = 3, kEcCurve = 10, kRsaExponent = 200;
constexpr uint32_t kActiveDate = 400, kUsageExpireDate = 402, kCreationDate = 701;
constexpr uint32_t kRootOfTrust = 704, kDeviceUnique = 720, kOsPatchLevel = 706,
                   kApplicationId = 709;

constexpr unsigned kKeyCertSign = 5;  // a bit of keyUsage

struct CryptoFree {
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
template <typename T>
using Owned = std::unique_ptr<T, CryptoFree>;

Owned<EVP_PKEY> publicKey(Window info) {
    const uint8_t* at = info.data();
    Owned<EVP_PKEY> key(d2i_PUBKEY(nullptr, &at, static_cast<long>(info.size())));
    ERR_clear_error();
    return key;
}

bool isSignedBy(Window certificate, EVP_PKEY* key) {
    const uint8_t* at = certificate.data();
    const Owned<X509> parsed(d2i_X509(nullptr, &at, static_cast<long>(certificate.size())));
    const bool good = parsed != nullptr && X509_verify(parsed.get(), key) == 1;
    ERR_clear_error();
    return good;
}

// What a key description says about a public key, in the published numbers.
struct KeyFacts {
    uint64_t algorithm = 0;
    uint64_t bits = 0;
    std::optional<uint64_t> curve;
    std::optional<uint64_t> exponent;
};

std::optional<uint64_t> curveOf(EVP_PKEY* key) {
    const EC_KEY* const ec = EVP_PKEY_get0_EC_KEY(key);
    if (ec == nullptr) return std::nullopt;
    switch (EC_GROUP_get_curve_name(EC_KEY_get0_group(ec))) {
        case NID_secp224r1:
            return 0;
        case NID_X9_62_prime256v1:
            return 1;
        case NID_secp384r1:
            return 2;
        case NID_secp521r1:
            return 3;
        default:
            return std::nullopt;
    }
}

std::optional<uint64_t> exponentOf(EVP_PKEY* key) {
    const RSA* const rsa = EVP_PKEY_get0_RSA(key);
    if (rsa == nullptr) return std::nullopt;
    const BIGNUM* exponent = nullptr;
    RSA_get0_key(rsa, nullptr, &exponent, nullptr);
    if (exponent == nullptr || BN_num_bits(exponent) > 64) return std::nullopt;
    Bytes bytes(static_cast<size_t>(BN_num_bytes(exponent)));
    BN_bn2bin(exponent, bytes.data());
    return Window(bytes).big(0, bytes.size());
}

KeyFacts factsOf(EVP_PKEY* key) {
    KeyFacts facts;
    facts.bits = static_cast<uint64_t>(EVP_PKEY_bits(key));
    if (EVP_PKEY_id(key) == EVP_PKEY_RSA) facts.algorithm = kRsa;
    if (EVP_PKEY_id(key) == EVP_PKEY_EC) facts.algorithm = kEc;
    if (facts.algorithm == kEc) facts.curve = curveOf(key);
    if (facts.algorithm == kRsa) facts.exponent = exponentOf(key);
    return facts;
}

// The content of an extension that is one element of the type; nothing for others.
std::optional<DerElement> onlyElement(Window value, DerNumber type) {
    DerReader reader(value);
    const auto element = reader.next();
    if (!element || !element->is(type) || !reader.atEnd()) return std::nullopt;
    return element;
}

// The bits of a named bit list, the first one lowest; nothing where it is not DER.
std::optional<uint64_t> bitsOf(Window value) {
    const auto bits = onlyElement(value, kDerBitString);
    if (!bits || bits->content.empty() || bits->content.size() > 3) return std::nullopt;
    const uint8_t unused = bits->content[0];
    const Window bytes = bits->content.sub(1);
    if (unused > 7 || (bytes.empty() && unused != 0)) return std::nullopt;
    uint64_t set = 0;
    for (size_t i = 0; i < 8 * bytes.size(); ++i) {
        if ((bytes[i / 8] >> (7 - i % 8) & 1) != 0) set |= uint64_t{1} << i;
    }
    // DER ends with the last bit that is set.
    const size_t used = 8 * bytes.size() - unused;
    const bool ends_there = used == 0 ? set == 0 : set >> (used - 1) == 1;
    return ends_there ? std::optional<uint64_t>(set) : std::nullopt;
}

std::string usageText(uint64_t bits) {
    constexpr const char* kNames[] = {"digitalSignature", "nonRepudiation", "keyEncipherment",
                                      "dataEncipherment", "keyAgreement",   "keyCertSign",
                                      "cRLSign",          "encipherOnly",   "decipherOnly"};
    std::string text;
    for (size_t i = 0; i < std::size(kNames); ++i) {
        if ((bits >> i & 1) != 0) text += (text.empty() ? "" : "+") + std::string(kNames[i]);
    }
    return text.empty() ? "none" : text;
}

const Rule* const kRules[] = {
    &rule::kLength,
    &rule::kForm,
    &rule::kNames,
    &rule::kSelfIssued,
    &rule::kSignatures,
    &rule::kDates,
    &rule::kAuthority,
    &rule::kKeyIds,
    &rule::kOneDescription,
    &rule::kRoot,
    &rule::kLeafVersion,
    &rule::kLeafSerial,
    &rule::kLeafSignature,
    &rule::kLeafSubject,
    &rule::kLeafDates,
    &rule::kLeafUsage,
    &rule::kLeafKey,
    &rule::kDer,
    &rule::kFields,
    &rule::kVersion,
    &rule::kKeymasterVersion,
    &rule::kLevels,
    &rule::kChallenge,
    &rule::kUniqueId,
    &rule::kOrder,
    &rule::kOnce,
    &rule::kKnown,
    &rule::kPlace,
    &rule::kType,
    &rule::kInteger,
    &rule::kSet,
    &rule::kValue,
    &rule::kRequired,
    &rule::kRootPresent,
    &rule::kRootShape,
    &rule::kRootState,
    &rule::kRootKey,
    &rule::kRootHash,
    &rule::kWantChallenge,
    &rule::kWantApplication,
    &rule::kWantLevel,
    &rule::kWantVersion,
    &rule::kWantBootState,
    &rule::kWantLocked,
    &rule::kWantBootKey,
    &rule::kWantBootHash,
    &rule::kWantPatchLevel,
    &rule::kWantPublicKey,
};

const Rule* const kDescriptionRules[] = {
    &rule::kDer,    &rule::kFields,    &rule::kVersion,  &rule::kKeymasterVersion,
    &rule::kLevels, &rule::kChallenge, &rule::kUniqueId,
};
const Rule* const kListRules[] = {
    &rule::kOrder,   &rule::kOnce, &rule::kKnown, &rule::kPlace,    &rule::kType,
    &rule::kInteger, &rule::kSet,  &rule::kValue, &rule::kRequired, &rule::kRootPresent,
};
const Rule* const kRootRules[] = {
    &rule::kRootShape,
    &rule::kRootState,
    &rule::kRootKey,
    &rule::kRootHash,
};

class Judge {
  public:
    Judge(const std::vector<Bytes>& chain, const Expectations& expected)
        : expected_(expected), ders_(chain) {}

    Verdict run() {
        noteUnasked();
        read();
        if (!chain_.empty() && chain_.front().whole) judgeLeaf();
        if (!chain_.empty() && all_whole_) judgeChain();
        Verdict verdict;
        for (const Rule* rule : kRules) verdict.rules.push_back({rule, outcomeOf(*rule)});
        verdict.faults = std::move(faults_);
        return verdict;
    }

  private:
    Outcome outcomeOf(const Rule& rule) const {
        const bool broken =
            std::any_of(faults_.begin(), faults_.end(),
                        [&rule](const Fault& fault) { return fault.rule == rule.name; });
        if (broken) return Outcome::broken;
        if (std::find(reached_.begin(), reached_.end(), &rule) != reached_.end()) {
            return Outcome::holds;
        }
        const bool unasked = std::find(unasked_.begin(), unasked_.end(), &rule) != unasked_.end();
        return unasked ? Outcome::notAsked : Outcome::notReached;
    }

    void reach(const Rule& rule) { reached_.push_back(&rule); }
    template <size_t N>
    void reachAll(const Rule* const (&rules)[N]) {
        reached_.insert(reached_.end(), std::begin(rules), std::end(rules));
    }

    void fail(const Rule& broken, size_t certificate, Window where, const std::string& why,
              std::optional<uint32_t> tag = std::nullopt) {
        FaultList(faults_, certificate).add(broken, where.offset(), why, tag);
    }

    void read() {
        addOmittedRoot();
        reach(rule::kForm);
        reach(rule::kLength);
        for (const Bytes& der : ders_) {
            FaultList faults(faults_, chain_.size());
            chain_.push_back(readCertificate(Window(der), faults));
            all_whole_ = all_whole_ && chain_.back().whole;
        }
        if (chain_.size() < 2) {
            faults_.push_back({rule::kLength.name, std::nullopt, std::nullopt, std::nullopt,
                               "there is " + std::to_string(chain_.size()) +
                                   " certificate; who vouches for the key is missing"});
        }
    }

    // What the caller does not know is not judged, whatever else can be.
    void noteUnasked() {
        const std::pair<const Rule*, bool> asked[] = {
            {&rule::kRoot, !expected_.roots.empty()},
            {&rule::kWantChallenge, expected_.challenge.has_value()},
            {&rule::kWantApplication, expected_.application_id.has_value()},
            {&rule::kWantLevel, expected_.level.has_value()},
            {&rule::kWantVersion, expected_.version.has_value()},
            {&rule::kWantBootState, expected_.boot_state.has_value()},
            {&rule::kWantLocked, expected_.locked.has_value()},
            {&rule::kWantBootKey, expected_.boot_key.has_value()},
            {&rule::kWantBootHash, expected_.boot_hash.has_value()},
            {&rule::kWantPatchLevel, expected_.os_patchlevel.has_value()},
            {&rule::kWantPublicKey, expected_.public_key.has_value()},
        };
        for (const auto& [rule, is_asked] : asked) {
            if (!is_asked) unasked_.push_back(rule);
        }
    }

    void addOmittedRoot() {
        if (ders_.empty()) return;
        std::vector<Fault> ignored;
        FaultList faults(ignored);
        const Certificate last = readCertificate(Window(ders_.back()), faults);
        if (!last.whole || last.issuer == last.subject) return;
        for (const Bytes& root : expected_.roots) {
            if (readCertificate(Window(root), faults).subject == last.issuer) {
                ders_.push_back(root);
                return;
            }
        }
    }

    void judgeChain() {
        for (const Rule* rule : {&rule::kNames, &rule::kSelfIssued, &rule::kSignatures,
                                 &rule::kDates, &rule::kAuthority, &rule::kKeyIds}) {
            reach(*rule);
        }
        for (size_t i = 0; i < chain_.size(); ++i) {
            judgeLink(i);
            judgeDates(i);
            if (i > 0) judgeAuthority(i);
        }
        const Certificate& last = chain_.back();
        // A device that attests with a key of its own sends no root along.
        if (last.issuer != last.subject && description_.hardware.find(kDeviceUnique) == nullptr) {
            fail(rule::kSelfIssued, chain_.size() - 1, last.issuer,
                 "it was issued by " + nameText(last.issuer) + "; the chain goes on");
        }
        judgeRoot();
    }

    void judgeLink(size_t i) {
        const Certificate& one = chain_[i];
        const bool last = i + 1 == chain_.size();
        const Certificate& issuer = last ? one : chain_[i + 1];
        if (one.issuer != issuer.subject && !last) {
            fail(rule::kNames, i, one.issuer,
                 "it was issued by " + nameText(one.issuer) + ", the next one is " +
                     nameText(issuer.subject) + hintAtOrder(one));
        }
        judgeKeyIds(i, issuer);
        // Whoever issued the last one is not here to be asked.
        if (last && one.issuer != one.subject) return;
        const Owned<EVP_PKEY> key = publicKey(issuer.public_key);
        if (key == nullptr) {
            fail(rule::kSignatures, last ? i : i + 1, issuer.public_key,
                 "its public key cannot be read");
        } else if (!isSignedBy(one.der, key.get())) {
            fail(rule::kSignatures, i, one.algorithm,
                 "the signature (" + algorithmText(one.algorithm) + ") is not by the key of " +
                     nameText(issuer.subject));
        }
    }

    std::string hintAtOrder(const Certificate& one) const {
        for (size_t i = 0; i < chain_.size(); ++i) {
            if (chain_[i].subject == one.issuer && &chain_[i] != &one) {
                return "; certificate " + std::to_string(i) +
                       " has that name, so the order is wrong";
            }
        }
        return "";
    }

    void judgeKeyIds(size_t i, const Certificate& issuer) {
        if (chain_[i].issuer != issuer.subject) return;
        const Extension* const authority = chain_[i].find(kAuthorityKeyIdOid);
        const Extension* const subject = issuer.find(kSubjectKeyIdOid);
        if (authority == nullptr || subject == nullptr) return;
        const auto sequence = onlyElement(authority->value, kDerSequence);
        const auto id = sequence ? DerReader(sequence->content).next() : std::nullopt;
        const auto own = onlyElement(subject->value, kDerOctetString);
        if (!id || id->cls != DerClass::context || id->number != 0 || !own) {
            fail(rule::kKeyIds, i, authority->where, "a key id cannot be read");
        } else if (id->content != own->content) {
            fail(rule::kKeyIds, i, authority->where,
                 "it names " + hexText(id->content.sub(0, 32)) + ", the issuer is " +
                     hexText(own->content.sub(0, 32)));
        }
    }

    void judgeDates(size_t i) {
        const Certificate& one = chain_[i];
        if (!one.not_before.seconds || !one.not_after.seconds) return;
        const std::string asked = dateText(expected_.at_seconds * 1000);
        if (expected_.at_seconds < *one.not_before.seconds) {
            fail(rule::kDates, i, one.not_before.where,
                 "it is valid from " + dateText(*one.not_before.seconds * 1000) + ", not at " +
                     asked);
        }
        if (expected_.at_seconds > *one.not_after.seconds) {
            fail(
                rule::kDates, i, one.not_after.where,
                "it was valid to " + dateText(*one.not_after.seconds * 1000) + ", not at " + asked);
        }
    }

    void judgeAuthority(size_t i) {
        const Certificate& one = chain_[i];
        const Extension* const constraints = one.find(kBasicConstraintsOid);
        const auto sequence =
            constraints == nullptr ? std::nullopt : onlyElement(constraints->value, kDerSequence);
        DerReader fields(sequence ? sequence->content : Window());
        const auto authority = fields.next();
        const bool issues = authority && authority->is(kDerBoolean) &&
                            authority->content.size() == 1 && authority->content[0] == 0xFF;
        if (!issues) {
            fail(rule::kAuthority, i, constraints == nullptr ? one.der : constraints->where,
                 "its basic constraints do not say that it issues certificates");
        }
        const auto below = fields.next();
        const auto limit = below ? derUnsigned(below->content).value : std::nullopt;
        if (limit && *limit < i - 1) {
            fail(rule::kAuthority, i, below->whole,
                 std::to_string(i - 1) + " issuers stand below it, it allows " +
                     std::to_string(*limit));
        }
        const Extension* const usage = one.find(kKeyUsageOid);
        if (usage == nullptr) return;
        const auto bits = bitsOf(usage->value);
        if (!bits || (*bits >> kKeyCertSign & 1) == 0) {
            fail(rule::kAuthority, i, usage->where,
                 "its key usage is " + (bits ? usageText(*bits) : "not readable") +
                     ", without keyCertSign");
        }
    }

    void judgeRoot() {
        if (expected_.roots.empty()) return;
        reach(rule::kRoot);
        const Certificate& last = chain_.back();
        for (const Bytes& root : expected_.roots) {
            std::vector<Fault> ignored;
            FaultList faults(ignored);
            const Certificate trusted = readCertificate(Window(root), faults);
            // A root may be certified anew under its name and key.
            if (trusted.whole && trusted.subject == last.subject &&
                trusted.public_key == last.public_key) {
                return;
            }
        }
        fail(rule::kRoot, chain_.size() - 1, last.subject,
             nameText(last.subject) + " is not among them by its name and key");
    }

    void judgeLeaf() {
        const Certificate& leaf = chain_.front();
        reach(rule::kLeafVersion);
        if (!leaf.version.is(2)) {
            fail(rule::kLeafVersion, 0, leaf.version.where,
                 "it is version " + std::to_string(leaf.version.value.value_or(0) + 1));
        }
        reach(rule::kLeafSerial);
        if (leaf.serial.size() != 1 || leaf.serial[0] != 1) {
            fail(rule::kLeafSerial, 0, leaf.serial, "it is " + hexText(leaf.serial.sub(0, 32)));
        }
        reach(rule::kLeafSignature);
        const std::string algorithm = algorithmText(leaf.algorithm);
        if (algorithm != "sha256WithRSAEncryption" && algorithm != "ecdsa-with-SHA256") {
            fail(rule::kLeafSignature, 0, leaf.algorithm, "it is " + algorithm);
        }
        reach(rule::kLeafSubject);
        if (nameText(leaf.subject) != "CN=Android Keystore Key") {
            fail(rule::kLeafSubject, 0, leaf.subject, "it is " + nameText(leaf.subject));
        }
        judgeDescription();
        if (!description_.whole) return;
        judgeLeafDates();
        judgeLeafUsage();
        judgeLeafKey();
        judgeExpectations();
    }

    void judgeDescription() {
        reach(rule::kOneDescription);
        const Extension* found = nullptr;
        for (size_t i = 0; i < chain_.size(); ++i) {
            for (const Extension& extension : chain_[i].extensions) {
                if (extension.oid != kKeyDescriptionOid) continue;
                if (i == 0 && found == nullptr) {
                    found = &extension;
                } else {
                    fail(rule::kOneDescription, i, extension.where,
                         i == 0 ? "it describes its key a second time"
                                : "an issuer describes a key; whoever has its key can add "
                                  "certificates that look attested");
                }
            }
        }
        if (found == nullptr) {
            fail(rule::kOneDescription, 0, chain_.front().der,
                 std::string("the extension ") + kKeyDescriptionOid + " is missing");
            return;
        }
        FaultList faults(faults_, 0);
        description_ = readKeyDescription(found->value, faults);
        reach(rule::kFields);
        if (!description_.whole) return;
        reachAll(kDescriptionRules);
        reachAll(kListRules);
        const Authorization* const root = rootOfTrust();
        if (root != nullptr && root->root.whole) reachAll(kRootRules);
        if (root == nullptr && description_.level.is(0)) {
            unasked_.insert(unasked_.end(), std::begin(kRootRules), std::end(kRootRules));
        }
    }

    const Authorization* rootOfTrust() const { return description_.find(kRootOfTrust); }

    void judgeLeafDates() {
        reach(rule::kLeafDates);
        const Certificate& leaf = chain_.front();
        constexpr uint64_t kLastSecond = 253402300799;  // of the year 9999
        const auto compare = [&](const Moment& moment, uint64_t wanted, const std::string& source) {
            if (!moment.seconds || *moment.seconds == wanted) return;
            fail(rule::kLeafDates, 0, moment.where,
                 "it is " + dateText(*moment.seconds * 1000) + ", " + source + " says " +
                     dateText(wanted * 1000));
        };
        const auto active = description_.integer(kActiveDate);
        const auto from = active ? active : description_.integer(kCreationDate);
        if (from) {
            compare(leaf.not_before, std::min(*from / 1000, kLastSecond),
                    active ? "activeDateTime" : "creationDateTime");
        }
        if (const auto to = description_.integer(kUsageExpireDate)) {
            compare(leaf.not_after, std::min(*to / 1000, kLastSecond), "usageExpireDateTime");
        } else if (chain_.size() > 1 && chain_[1].not_after.seconds) {
            compare(leaf.not_after, *chain_[1].not_after.seconds, "the issuer's notAfter");
        }
    }

    void judgeLeafUsage() {
        reach(rule::kLeafUsage);
        constexpr struct {
            uint64_t purpose;
            unsigned bit;
        } kBits[] = {{2, 0}, {1, 3}, {5, 2}};  // SIGN, DECRYPT, WRAP_KEY
        uint64_t wanted = 0;
        const AuthorizationList& lists = description_.hardware.find(kPurpose) != nullptr
                                             ? description_.hardware
                                             : description_.software;
        for (const auto& each : kBits) {
            if (lists.has(kPurpose, each.purpose)) wanted |= uint64_t{1} << each.bit;
        }
        const Extension* const usage = chain_.front().find(kKeyUsageOid);
        if (usage == nullptr && wanted == 0) return;
        const Window where = usage == nullptr ? chain_.front().der : usage->where;
        const auto bits = usage == nullptr ? std::optional<uint64_t>(0) : bitsOf(usage->value);
        if (!bits) {
            fail(rule::kLeafUsage, 0, where, "it is no bit list in DER");
        } else if (*bits != wanted) {
            fail(rule::kLeafUsage, 0, where,
                 "it is " + usageText(*bits) + ", the purposes say " + usageText(wanted));
        } else if (wanted == 0) {
            fail(rule::kLeafUsage, 0, where, "no usage is named; then it is left out");
        }
    }

    void judgeLeafKey() {
        reach(rule::kLeafKey);
        const Window where = chain_.front().public_key;
        const Owned<EVP_PKEY> key = publicKey(where);
        if (key == nullptr) {
            fail(rule::kLeafKey, 0, where, "it cannot be read");
            return;
        }
        const KeyFacts facts = factsOf(key.get());
        const auto compare = [&](uint32_t tag, const std::optional<uint64_t>& fact) {
            const auto told = description_.integer(tag);
            if (!told || told == fact) return;
            fail(rule::kLeafKey, 0, description_.find(tag)->where,
                 "the description says " + std::to_string(*told) + ", the key has " +
                     (fact ? std::to_string(*fact) : "none"),
                 tag);
        };
        compare(kAlgorithm, facts.algorithm);
        compare(kKeySize, facts.bits);
        compare(kEcCurve, facts.curve);
        compare(kRsaExponent, facts.exponent);
    }

    void judgeExpectations() {
        const KeyDescription& d = description_;
        wantBytes(rule::kWantChallenge, expected_.challenge, &d.challenge);
        const Authorization* const application = d.find(kApplicationId);
        wantBytes(rule::kWantApplication, expected_.application_id,
                  application == nullptr ? nullptr : &application->bytes, kApplicationId);
        wantNumber(rule::kWantLevel, expected_.level, &d.level);
        wantNumber(rule::kWantVersion, expected_.version, &d.version);
        const Authorization* const trust = rootOfTrust();
        const RootOfTrust* const root = trust == nullptr ? nullptr : &trust->root;
        wantNumber(rule::kWantBootState, expected_.boot_state, root ? &root->state : nullptr);
        wantNumber(rule::kWantLocked, expected_.locked, root ? &root->locked : nullptr);
        wantBytes(rule::kWantBootKey, expected_.boot_key, root ? &root->key : nullptr,
                  kRootOfTrust);
        wantBytes(rule::kWantBootHash, expected_.boot_hash, root ? &root->hash : nullptr,
                  kRootOfTrust);
        wantBytes(rule::kWantPublicKey, expected_.public_key, &chain_.front().public_key);
        wantPatchLevel();
    }

    void wantBytes(const Rule& rule, const std::optional<Bytes>& wanted, const Window* found,
                   std::optional<uint32_t> tag = std::nullopt) {
        if (!wanted) return;
        reach(rule);
        const Window expected(*wanted);
        if (found != nullptr && *found == expected) return;
        fail(rule, 0, found == nullptr ? description_.where : *found,
             (found == nullptr ? "it is missing" : "it is " + bytesText(*found)) +
                 ", expected was " + bytesText(expected),
             tag);
    }

    void wantNumber(const Rule& rule, const std::optional<uint64_t>& wanted, const Number* found) {
        if (!wanted) return;
        reach(rule);
        if (found != nullptr && found->is(*wanted)) return;
        const bool known = found != nullptr && found->value;
        fail(rule, 0, known ? found->where : description_.where,
             "it is " + (known ? std::to_string(*found->value) : "missing") + ", expected was " +
                 std::to_string(*wanted));
    }

    void wantPatchLevel() {
        if (!expected_.os_patchlevel) return;
        reach(rule::kWantPatchLevel);
        const Authorization* const entry = description_.find(kOsPatchLevel);
        const auto found = description_.integer(kOsPatchLevel);
        if (found && *found >= *expected_.os_patchlevel) return;
        fail(rule::kWantPatchLevel, 0, entry == nullptr ? description_.where : entry->where,
             "it is " + (found ? std::to_string(*found) : "missing") + ", expected was " +
                 std::to_string(*expected_.os_patchlevel) + " or later",
             kOsPatchLevel);
    }

    const Expectations& expected_;
    std::vector<Bytes> ders_;  // the windows are into these
    std::vector<Certificate> chain_;
    bool all_whole_ = true;
    KeyDescription description_;
    std::vector<Fault> faults_;
    std::vector<const Rule*> reached_;
    std::vector<const Rule*> unasked_;
};

}  // namespace

const char* nameOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::holds:
            return "holds";
        case Outcome::broken:
            return "broken";
        case Outcome::notAsked:
            return "not asked";
        case Outcome::notReached:
            return "not reached";
    }
    return "";
}

bool Verdict::good() const {
    return std::none_of(rules.begin(), rules.end(), [](const Judged& each) {
        return each.outcome == Outcome::broken || each.outcome == Outcome::notReached;
    });
}

Verdict judge(const std::vector<Bytes>& chain, const Expectations& expected) {
    return Judge(chain, expected).run();
}

}  // namespace lumo::inspect
