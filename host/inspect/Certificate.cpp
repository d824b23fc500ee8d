#include "inspect/Certificate.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <memory>

#include "inspect/DerFields.h"
#include "inspect/KeyDescription.h"
#include "inspect/Parameters.h"
#include "inspect/Values.h"

namespace lumo::inspect {

namespace {

constexpr size_t kMaxCertificates = 64;  // far more than a chain has
constexpr char kPemBegin[] = "-----BEGIN ";
constexpr char kCertificateLabel[] = "CERTIFICATE";

struct NamedOid {
    const char* oid;
    const char* name;
};
constexpr NamedOid kNames[] = {
    {"2.5.4.3", "CN"},
    {"2.5.4.5", "serialNumber"},
    {"2.5.4.6", "C"},
    {"2.5.4.7", "L"},
    {"2.5.4.8", "ST"},
    {"2.5.4.10", "O"},
    {"2.5.4.11", "OU"},
    {"2.5.4.12", "title"},
    {"1.2.840.10045.2.1", "EC public key"},
    {"1.2.840.10045.4.3.2", "ecdsa-with-SHA256"},
    {"1.2.840.10045.4.3.3", "ecdsa-with-SHA384"},
    {"1.2.840.10045.4.3.4", "ecdsa-with-SHA512"},
    {"1.2.840.113549.1.1.1", "RSA public key"},
    {"1.2.840.113549.1.1.5", "sha1WithRSAEncryption"},
    {"1.2.840.113549.1.1.11", "sha256WithRSAEncryption"},
    {"1.2.840.113549.1.1.12", "sha384WithRSAEncryption"},
    {"1.2.840.113549.1.1.13", "sha512WithRSAEncryption"},
    {kKeyUsageOid, "keyUsage"},
    {kBasicConstraintsOid, "basicConstraints"},
    {kSubjectKeyIdOid, "subjectKeyIdentifier"},
    {kAuthorityKeyIdOid, "authorityKeyIdentifier"},
    {kKeyDescriptionOid, "key description"},
};

std::string nameOfOid(const std::string& oid) {
    const auto* const found =
        std::find_if(std::begin(kNames), std::end(kNames),
                     [&oid](const NamedOid& each) { return oid == each.oid; });
    return found == std::end(kNames) ? oid : found->name;
}

// Days from 1970-01-01 to a date of the Gregorian calendar.
uint64_t daysBefore(uint64_t year, uint64_t month, uint64_t day) {
    constexpr uint64_t kBeforeMonth[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    const uint64_t past = year - 1;
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    constexpr uint64_t kDaysBefore1970 = 719162;
    return 365 * past + past / 4 - past / 100 + past / 400 - kDaysBefore1970 +
           kBeforeMonth[month - 1] + (leap && month > 2 ? 1 : 0) + day - 1;
}

// Reads `digits` characters; what is no digit makes the number too large for any field of a date.
uint64_t digitsAt(const std::string& text, size_t at, size_t digits) {
    uint64_t value = 0;
    for (size_t i = at; i < at + digits; ++i) {
        if (i >= text.size() || text[i] < '0' || text[i] > '9') return UINT64_MAX;
        value = 10 * value + static_cast<uint64_t>(text[i] - '0');
    }
    return value;
}

std::optional<uint64_t> secondsOf(std::string text, bool utc_time) {
    if (utc_time) text.insert(0, text.compare(0, 1, "5") < 0 ? "20" : "19");
    if (text.size() != 15 || text[14] != 'Z') return std::nullopt;
    const uint64_t year = digitsAt(text, 0, 4), month = digitsAt(text, 4, 2);
    const uint64_t day = digitsAt(text, 6, 2), hour = digitsAt(text, 8, 2);
    const uint64_t minute = digitsAt(text, 10, 2), second = digitsAt(text, 12, 2);
    const bool exists = year >= 1970 && year <= 9999 && month >= 1 && month <= 12 && day >= 1 &&
                        day <= 31 && hour < 24 && minute < 60 && second < 60;
    if (!exists) return std::nullopt;
    return daysBefore(year, month, day) * 86400 + hour * 3600 + minute * 60 + second;
}

class CertificateReader {
  public:
    CertificateReader(Window der, FaultList& faults)
        : faults_(faults), fields_(rule::kForm, rule::kForm, faults), reader_(der) {
        certificate_.der = der;
    }

    Certificate read() {
        const auto outer = fields_.takeWhole(reader_, "the certificate");
        if (!outer) return certificate_;
        fields_.expectEnd(reader_, "the certificate");
        DerReader parts(outer->content);
        if (outer->missing != 0 && readCut(parts)) return certificate_;
        const auto to_be_signed = take(parts, kDerSequence, "what is signed");
        certificate_.outer_algorithm = whole(take(parts, kDerSequence, "the signature algorithm"));
        if (to_be_signed) readFields(DerReader(to_be_signed->content));
        take(parts, kDerBitString, "the signature");
        certificate_.whole = !fields_.broken() && outer->missing == 0;
        return certificate_;
    }

  private:
    void fail(Window where, const std::string& why) { fields_.note(where, why); }

    std::optional<DerElement> take(DerReader& reader, DerNumber type, const char* what) {
        return fields_.take(reader, type, what);
    }

    // The fields of what is signed where the certificate is cut off inside of it.
    bool readCut(DerReader parts) {
        const auto to_be_signed = parts.nextOrCut();
        const bool cut = to_be_signed && to_be_signed->missing != 0;
        if (!cut || !to_be_signed->is(kDerSequence)) return false;
        readFields(DerReader(to_be_signed->content));
        return true;
    }

    static Window whole(const std::optional<DerElement>& element) {
        return element ? element->whole : Window();
    }

    void readFields(DerReader fields) {
        readVersion(fields);
        const auto serial = take(fields, kDerInteger, "the serial number");
        if (serial) certificate_.serial = serial->content;
        certificate_.algorithm = whole(take(fields, kDerSequence, "the algorithm"));
        certificate_.issuer = whole(take(fields, kDerSequence, "the issuer"));
        if (const auto validity = take(fields, kDerSequence, "the validity")) {
            DerReader times(validity->content);
            certificate_.not_before = readMoment(times, "notBefore");
            certificate_.not_after = readMoment(times, "notAfter");
        }
        certificate_.subject = whole(take(fields, kDerSequence, "the subject"));
        certificate_.public_key = whole(take(fields, kDerSequence, "the public key"));
        const bool signed_part_alone = certificate_.outer_algorithm.empty();
        if (!fields_.broken() && !signed_part_alone &&
            certificate_.algorithm != certificate_.outer_algorithm) {
            fail(certificate_.outer_algorithm, "the signature algorithm is not the one signed");
        }
        readExtensions(fields);
    }

    // [0] EXPLICIT, left out in version 1.
    void readVersion(DerReader& fields) {
        DerReader ahead = fields;
        const auto tagged = ahead.next();
        if (!tagged || !tagged->isContext() || tagged->number != 0) return;
        fields = ahead;
        DerReader inside(tagged->content);
        const auto version = take(inside, kDerInteger, "the version");
        if (version) certificate_.version = readUnsigned(*version, rule::kForm, faults_);
    }

    Moment readMoment(DerReader& times, const char* what) {
        Moment moment;
        if (fields_.broken()) return moment;
        const Window here = times.rest();
        const auto element = times.next();
        const bool utc_time = element && element->is(kDerUtcTime);
        if (!element || !(utc_time || element->is(kDerGeneralizedTime))) {
            fields_.stop(here, std::string(what) + " is no time");
            return moment;
        }
        moment.where = element->whole;
        moment.text.assign(element->content.begin(), element->content.end());
        moment.seconds = secondsOf(moment.text, utc_time);
        constexpr uint64_t kFirstSecondOf2050 = 2524608000;
        if (!moment.seconds) {
            fail(moment.where, std::string(what) + ": '" + printable(moment.text) +
                                   "' is no time of the form that certificates have");
        } else if (!utc_time && *moment.seconds < kFirstSecondOf2050) {
            fail(moment.where, std::string(what) + " is before 2050 and no UTCTime");
        }
        return moment;
    }

    // [3] EXPLICIT, after unique ids that nobody uses.
    void readExtensions(DerReader& fields) {
        if (fields_.broken() || fields.atEnd()) return;
        const Window here = fields.rest();
        const auto tagged = fields.next();
        if (!tagged) return fail(here, "the extensions: " + std::string(fields.error()));
        if (!tagged->isContext() || tagged->number != 3) {
            return fail(here, "after the public key stand no extensions");
        }
        DerReader inside(tagged->content);
        const auto list = take(inside, kDerSequence, "the extensions");
        if (!list) return;
        DerReader extensions(list->content);
        while (!fields_.broken() && !extensions.atEnd()) {
            if (const auto one = take(extensions, kDerSequence, "an extension"))
                readExtension(*one);
        }
    }

    void readExtension(const DerElement& element) {
        Extension extension;
        extension.where = element.whole;
        DerReader parts(element.content);
        const auto oid = take(parts, kDerObjectIdentifier, "an extension's name");
        if (!oid) return;
        extension.oid = derObjectIdentifier(oid->content);
        DerReader ahead = parts;
        const auto critical = ahead.next();
        if (critical && critical->is(kDerBoolean)) {
            parts = ahead;
            extension.critical = critical->content.size() == 1 && critical->content[0] == 0xFF;
            if (!extension.critical) {
                fail(critical->whole, "an extension that is not critical does not say so in DER");
            }
        }
        const auto value = take(parts, kDerOctetString, "an extension's value");
        if (!value) return;
        extension.value = value->content;
        fields_.expectEnd(parts, "an extension's value");
        // The key description has a rule of its own for that.
        if (certificate_.find(extension.oid) != nullptr && extension.oid != kKeyDescriptionOid) {
            fail(extension.where, nameOfOid(extension.oid) + " stands twice");
        }
        certificate_.extensions.push_back(std::move(extension));
    }

    Certificate certificate_;
    FaultList& faults_;
    DerFields fields_;
    DerReader reader_;
};

struct BioFree {
    void operator()(BIO* bio) const { BIO_free_all(bio); }
};
struct OpensslFree {
    void operator()(void* memory) const { OPENSSL_free(memory); }
};

struct PemBlock {
    std::string label;
    Bytes data;
};

bool isPem(Window file) {
    constexpr size_t kBeginBytes = sizeof(kPemBegin) - 1;
    return std::search(file.begin(), file.end(), kPemBegin, kPemBegin + kBeginBytes) != file.end();
}

// The blocks of a PEM text; false where one is damaged, which is the one behind the last.
bool readPem(Window file, std::vector<PemBlock>& blocks) {
    const std::unique_ptr<BIO, BioFree> bio(
        BIO_new_mem_buf(file.data(), static_cast<int>(file.size())));
    while (bio != nullptr && blocks.size() < kMaxCertificates) {
        char* label = nullptr;
        char* header = nullptr;
        unsigned char* data = nullptr;
        long length = 0;
        if (PEM_read_bio(bio.get(), &label, &header, &data, &length) != 1) {
            const bool at_end = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
            ERR_clear_error();
            return at_end;
        }
        const std::unique_ptr<char, OpensslFree> label_owner(label);
        const std::unique_ptr<char, OpensslFree> header_owner(header);
        const std::unique_ptr<unsigned char, OpensslFree> data_owner(data);
        blocks.push_back({label, Bytes(data, data + length)});
    }
    return true;
}

std::vector<Bytes> certificatesOfPem(Window file, std::string& error) {
    std::vector<PemBlock> blocks;
    if (!readPem(file, blocks)) {
        error = "the PEM text of certificate " + std::to_string(blocks.size()) + " is damaged";
        return {};
    }
    std::vector<Bytes> certificates;
    for (PemBlock& block : blocks) {
        if (block.label != kCertificateLabel) {
            error = "the PEM text holds a " + printable(block.label) + ", not certificates";
            return {};
        }
        certificates.push_back(std::move(block.data));
    }
    return certificates;
}

}  // namespace

const Extension* Certificate::find(const std::string& oid) const {
    const auto found = std::find_if(extensions.begin(), extensions.end(),
                                    [&oid](const Extension& each) { return each.oid == oid; });
    return found == extensions.end() ? nullptr : &*found;
}

Certificate readCertificate(Window der, FaultList& faults) {
    return CertificateReader(der, faults).read();
}

std::vector<Bytes> splitCertificates(Window file, std::string& error) {
    if (isPem(file)) return certificatesOfPem(file, error);
    std::vector<Bytes> found;
    DerReader elements(file);
    while (!elements.atEnd() && found.size() < kMaxCertificates) {
        const Window rest = elements.rest();
        const auto element = elements.next();
        if (!element || !element->is(kDerSequence)) {
            found.push_back(rest.copy());
            break;
        }
        found.push_back(element->whole.copy());
    }
    const auto first = DerReader(file).nextOrCut();
    if (first && first->is(kDerSequence)) return found;
    error = file.empty() ? "it is empty" : "it is neither PEM nor a SEQUENCE in DER";
    return {};
}

Bytes publicKeyInfo(Window file) {
    std::vector<PemBlock> blocks;
    if (isPem(file) && readPem(file, blocks) && blocks.size() == 1) {
        return blocks[0].label == "PUBLIC KEY" ? blocks[0].data : Bytes();
    }
    DerReader reader(file);
    const auto sequence = reader.next();
    return sequence && sequence->is(kDerSequence) && reader.atEnd() ? file.copy() : Bytes();
}

std::string nameText(Window name) {
    std::string text;
    DerReader outer(name);
    const auto sequence = outer.next();
    if (!sequence) return text;
    DerReader sets(sequence->content);
    while (const auto set = sets.next()) {
        DerReader attributes(set->content);
        while (const auto attribute = attributes.next()) {
            DerReader parts(attribute->content);
            const auto oid = parts.next();
            const auto value = parts.next();
            if (!oid || !value) continue;
            text += (text.empty() ? "" : ", ") + nameOfOid(derObjectIdentifier(oid->content)) +
                    "=" + printable(std::string(value->content.begin(), value->content.end()));
        }
    }
    return text;
}

std::string algorithmOid(Window algorithm_identifier) {
    DerReader outer(algorithm_identifier);
    const auto sequence = outer.next();
    if (!sequence) return "";
    const auto oid = DerReader(sequence->content).next();
    return oid && oid->is(kDerObjectIdentifier) ? derObjectIdentifier(oid->content) : "";
}

std::string algorithmText(Window algorithm_identifier) {
    return nameOfOid(algorithmOid(algorithm_identifier));
}

Item describe(const Certificate& certificate) {
    const Certificate& c = certificate;
    const auto moment = [](const Moment& each) {
        return each.seconds ? dateText(*each.seconds * 1000) : printable(each.text);
    };
    Item item(c.der, "certificate", nameText(c.subject));
    item.add(Item(c.serial, "serial", hexText(c.serial.sub(0, 32))));
    item.add(Item(c.algorithm, "signature", algorithmText(c.algorithm)));
    item.add(Item(c.issuer, "issuer", nameText(c.issuer)));
    item.add(Item(c.not_before.where, "notBefore", moment(c.not_before)));
    item.add(Item(c.not_after.where, "notAfter", moment(c.not_after)));
    item.add(Item(c.subject, "subject", nameText(c.subject)));
    DerReader key(c.public_key);
    const auto parts = key.next();
    const auto algorithm = parts ? DerReader(parts->content).next() : std::nullopt;
    item.add(Item(c.public_key, "public key", algorithm ? algorithmText(algorithm->whole) : ""));
    for (const Extension& extension : c.extensions) {
        item.add(Item(extension.where, nameOfOid(extension.oid),
                      (extension.critical ? "critical, " : "") +
                          std::to_string(extension.value.size()) + " bytes"));
    }
    return item;
}

}  // namespace lumo::inspect
