#include "inspect/WrappedKey.h"

#include <android/hardware/keymaster/4.0/types.h>

#include "inspect/AuthorizationList.h"
#include "inspect/DerFields.h"
#include "inspect/Values.h"

namespace lumo::inspect {

namespace {

using ::android::hardware::keymaster::V4_0::KeyFormat;

// Rules of a wrapper; nobody lists them.
constexpr Rule kForm = {"wrapper.form", ""};
constexpr Rule kSizes = {"wrapper.sizes", ""};

constexpr size_t kNonceBytes = 12, kTagBytes = 16;
constexpr uint32_t kAlgorithm = 2, kKeySize = 3;
constexpr uint64_t kAes = 32, kTripleDes = 33, kHmac = 128;

class WrapperReader {
  public:
    explicit WrapperReader(Window der)
        : der_(der), faults_(found_.faults), fields_(kForm, kForm, faults_) {}

    Inspection read() {
        DerReader outside(der_);
        const auto wrapper = fields_.takeWhole(outside, "SecureKeyWrapper");
        if (!wrapper) return std::move(found_);
        fields_.expectEnd(outside, "the wrapper");
        DerReader fields(wrapper->content);
        const auto version = number(fields, "version");
        if (version.value && !version.is(0)) note(kForm, version.where, "the version is not 0");
        const Window transport = bytes(fields, "encryptedTransportKey", 0);
        if (!transport.empty() && transport.size() < 128) {
            note(kSizes, transport, "no RSA key encrypts to that few bytes");
        }
        bytes(fields, "initializationVector", kNonceBytes);
        if (const auto description = fields_.take(fields, kDerSequence, "keyDescription")) {
            readDescription(*description);
        }
        const Window key = bytes(fields, "encryptedKey", 0);
        bytes(fields, "tag", kTagBytes);
        fields_.expectEnd(fields, "the tag");
        if (!fields_.broken()) checkKeySize(key);
        return std::move(found_);
    }

  private:
    void note(const Rule& rule, Window where, const std::string& why) {
        faults_.add(rule, where.offset(), why);
    }

    Number number(DerReader& fields, const char* name) {
        const auto element = fields_.take(fields, kDerInteger, name);
        if (!element) return {};
        const Number number = readUnsigned(*element, kForm, faults_);
        found_.items.emplace_back(element->whole, name,
                                  number.value ? std::to_string(*number.value) : "not readable");
        return number;
    }

    // `wanted` 0: of any size.
    Window bytes(DerReader& fields, const char* name, size_t wanted) {
        const auto element = fields_.take(fields, kDerOctetString, name);
        if (!element) return {};
        const Window content = element->content;
        found_.items.emplace_back(
            content, name,
            content.empty() ? "empty"
                            : hexText(content.sub(0, 32)) + (content.size() > 32 ? "..." : ""));
        if (wanted != 0 && content.size() != wanted) {
            note(kSizes, content,
                 std::string(name) + " has " + std::to_string(content.size()) + " bytes, not " +
                     std::to_string(wanted));
        }
        return content;
    }

    void readDescription(const DerElement& description) {
        DerReader fields(description.content);
        format_ = number(fields, "keyFormat");
        if (format_.value) {
            const bool known = format_.is(1) || format_.is(3);
            if (known) found_.items.back().value += " (" + formatName() + ")";
            if (!known) note(kForm, format_.where, "neither PKCS8 (1) nor RAW (3)");
        }
        const auto list = fields_.take(fields, kDerSequence, "keyParams");
        if (list) {
            params_ = readAuthorizationList(list->content, {}, faults_);
            found_.items.push_back(describe(params_, "keyParams"));
            fields_.expectEnd(fields, "keyParams");
        }
        found_.remarks.push_back("the tag covers the " + std::to_string(description.whole.size()) +
                                 " bytes of keyDescription from byte " +
                                 std::to_string(description.whole.offset()) + " on as well");
    }

    std::string formatName() const {
        return toString(KeyFormat{static_cast<uint32_t>(*format_.value)});
    }

    // Of a raw key the ciphertext is as long as the key.
    void checkKeySize(Window key) {
        const auto bits = params_.integer(kKeySize);
        const auto algorithm = params_.integer(kAlgorithm);
        if (!algorithm) note(kForm, params_.where, "keyParams name no algorithm");
        const auto number = algorithm.value_or(0);
        const bool symmetric = number == kAes || number == kTripleDes || number == kHmac;
        if (algorithm && symmetric != format_.is(3)) {
            note(kForm, format_.where,
                 symmetric ? "keys of this algorithm are imported RAW"
                           : "keys of this algorithm are imported as PKCS8");
        }
        if (!format_.is(3) || !bits) return;
        // Of 64 bits of a 3DES key 56 count.
        const uint64_t size = algorithm == kTripleDes ? *bits / 7 : *bits / 8;
        if (key.size() == size) return;
        note(kSizes, key,
             "encryptedKey has " + std::to_string(key.size()) + " bytes, keySize says " +
                 std::to_string(size));
    }

    Window der_;
    Inspection found_;
    FaultList faults_;
    DerFields fields_;
    Number format_;
    AuthorizationList params_;
};

}  // namespace

Inspection inspectWrappedKey(Window der) {
    return WrapperReader(der).read();
}

}  // namespace lumo::inspect
