#include "secureapp/attestation/Certificate.h"

#include <algorithm>

#include "secureapp/base/Dates.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/CryptoPtr.h"
#include "secureapp/crypto/Der.h"
#include "secureapp/crypto/Digest.h"
#include "secureapp/crypto/PrivateKey.h"

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
        refuse(KM_ERROR_UNKNOWN_ERROR, "libcrypto could not sign a certificate");
    }
    signature.resize(size);
    return signature;
}

Bytes bitString(ByteView bytes, uint8_t unused_bits) {
    Bytes contents = {unused_bits};
    append(contents, bytes);
    return der::item(der::kBitString, contents);
}

Bytes keyIdentifier(EVP_PKEY* key) {
    constexpr size_t kIdentifierBytes = 20;
    Bytes identifier = sha256(encodePublicKey(key));
    identifier.resize(kIdentifierBytes);
    return identifier;
}

void appendDigits(Bytes& text, uint64_t number, size_t digits) {
    uint64_t divisor = 1;
    for (size_t i = 1; i < digits; ++i) divisor *= 10;
    for (; divisor > 0; divisor /= 10) {
        text.push_back(static_cast<uint8_t>('0' + number / divisor % 10));
    }
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
    constexpr uint64_t kFirstYearOfGeneralizedTime = 2050;
    constexpr size_t kCenturyDigits = 2;  // which UTCTime omits
    const uint64_t seconds = std::min(millis / 1000, kLastSecond);
    const Date date = dateOf(seconds / kSecondsPerDay);
    Bytes text;
    appendDigits(text, date.year, 4);
    appendDigits(text, date.month, 2);
    appendDigits(text, date.day, 2);
    appendDigits(text, seconds / 3600 % 24, 2);
    appendDigits(text, seconds / 60 % 60, 2);
    appendDigits(text, seconds % 60, 2);
    text.push_back('Z');
    if (date.year >= kFirstYearOfGeneralizedTime) return der::item(der::kGeneralizedTime, text);
    return der::item(der::kUtcTime, ByteView(text).sub(kCenturyDigits));
}

Bytes extension(ByteView object_identifier, bool critical, ByteView value) {
    std::vector<Bytes> parts = {object_identifier.copy()};
    if (critical) parts.push_back(der::boolean(true));  // DER omits the default, false
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

Bytes subjectKeyIdentifierExtension(EVP_PKEY* key) {
    return extension(der::objectIdentifier({2, 5, 29, 14}), false,
                     der::octetString(keyIdentifier(key)));
}

Bytes authorityKeyIdentifierExtension(EVP_PKEY* issuer_key) {
    constexpr der::Tag kKeyIdentifierTag = {der::kContextClass, 0};  // IMPLICIT
    return extension(der::objectIdentifier({2, 5, 29, 35}), false,
                     der::sequence({der::item(kKeyIdentifierTag, keyIdentifier(issuer_key))}));
}

}  // namespace lumo::secureapp
