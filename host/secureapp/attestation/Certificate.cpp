#include "secureapp/attestation/Certificate.h"

#include <algorithm>
#include <array>
#include <ctime>

#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/CryptoPtr.h"
#include "secureapp/crypto/Der.h"

namespace lumo::secureapp {
namespace {

constexpr uint64_t kVersion3 = 2;  // as encoded
constexpr uint32_t kVersionTag = 0;
constexpr uint32_t kExtensionsTag = 3;

Bytes signatureAlgorithm(EVP_PKEY* key) {
    if (EVP_PKEY_id(key) == EVP_PKEY_RSA) {  // sha256WithRSAEncryption
        return der::sequence(
            {der::objectIdentifier({1, 2, 840, 113549, 1, 1, 11}), der::item(der::kNull, {})});
    }
    return der::sequence(
        {der::objectIdentifier({1, 2, 840, 10045, 4, 3, 2})});  // ecdsa-with-SHA256
}

Bytes sign(EVP_PKEY* key, ByteView data) {
    const CryptoPtr<EVP_MD_CTX> context(EVP_MD_CTX_new());
    Bytes signature(static_cast<size_t>(EVP_PKEY_size(key)));
    size_t size = signature.size();
    if (context == nullptr ||
        EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) != 1 ||
        EVP_DigestSign(context.get(), signature.data(), &size, data.data(), data.size()) != 1) {
        refuse(KM_ERROR_UNKNOWN_ERROR);
    }
    signature.resize(size);
    return signature;
}

Bytes bitString(ByteView bytes, uint8_t unused_bits) {
    Bytes contents = {unused_bits};
    append(contents, bytes);
    return der::item(der::kBitString, contents);
}

Bytes listOf(der::Tag tag, const std::vector<Bytes>& parts) {
    Bytes contents;
    for (const Bytes& part : parts) append(contents, part);
    return der::item(tag, contents);
}

}  // namespace

Bytes signCertificate(const CertificateFields& fields, EVP_PKEY* issuer_key) {
    const Bytes algorithm = signatureAlgorithm(issuer_key);
    const Bytes to_be_signed = der::sequence({
        der::item(der::context(kVersionTag), der::integer(kVersion3)),
        der::integer(fields.serial),
        algorithm,
        fields.issuer,
        der::sequence({fields.not_before, fields.not_after}),
        fields.subject,
        fields.public_key,
        der::item(der::context(kExtensionsTag), listOf(der::kSequence, fields.extensions)),
    });
    return der::sequence({to_be_signed, algorithm, bitString(sign(issuer_key, to_be_signed), 0)});
}

IssuerFields readIssuer(ByteView certificate) {
    der::Reader fields = der::Reader(certificate).enter(der::kSequence).enter(der::kSequence);
    fields.next(der::context(kVersionTag));
    fields.next(der::kInteger);
    fields.next(der::kSequence);  // signature
    fields.next(der::kSequence);  // issuer
    der::Reader validity = fields.enter(der::kSequence);
    validity.next();
    IssuerFields found;
    found.not_after = validity.next().encoding;
    found.subject = fields.next(der::kSequence).encoding;
    return found;
}

Bytes commonName(std::string_view name) {
    const Bytes text(name.begin(), name.end());
    const Bytes attribute =
        der::sequence({der::objectIdentifier({2, 5, 4, 3}), der::item(der::kUtf8String, text)});
    return der::sequence({der::setOf({attribute})});
}

Bytes certificateTime(uint64_t millis) {
    constexpr uint64_t kLastSecond = 253402300799;  // 9999-12-31 23:59:59
    constexpr int kFirstYearOfGeneralizedTime = 2050;
    constexpr size_t kCenturyDigits = 2;  // which UTCTime has not
    const auto seconds = static_cast<std::time_t>(std::min(millis / 1000, kLastSecond));
    std::tm date = {};
    gmtime_r(&seconds, &date);
    std::array<char, sizeof("YYYYMMDDHHMMSSZ")> digits = {};
    const size_t size = std::strftime(digits.data(), digits.size(), "%Y%m%d%H%M%SZ", &date);
    const Bytes text(digits.begin(), digits.begin() + static_cast<std::ptrdiff_t>(size));
    if (date.tm_year + 1900 >= kFirstYearOfGeneralizedTime) {
        return der::item(der::kGeneralizedTime, text);
    }
    return der::item(der::kUtcTime, ByteView(text).sub(kCenturyDigits));
}

Bytes extension(ByteView object_identifier, bool critical, ByteView value) {
    std::vector<Bytes> parts = {object_identifier.copy()};
    if (critical) parts.push_back(der::boolean(true));  // DER leaves the default, false, out
    parts.push_back(der::octetString(value));
    return listOf(der::kSequence, parts);
}

Bytes keyUsageExtension(const std::vector<KeyUsage>& usages) {
    constexpr uint8_t kFirstBit = 0x80;
    constexpr uint8_t kLastBitOfByte = 7;
    uint8_t bits = 0;
    uint8_t last = 0;
    for (const KeyUsage usage : usages) {
        const auto number = static_cast<uint8_t>(usage);
        bits = static_cast<uint8_t>(bits | kFirstBit >> number);
        last = std::max(last, number);
    }
    return extension(der::objectIdentifier({2, 5, 29, 15}), true,
                     bitString(Bytes{bits}, static_cast<uint8_t>(kLastBitOfByte - last)));
}

}  // namespace lumo::secureapp
