#include "secureapp/attestation/Attestation.h"

#include "secureapp/attestation/Certificate.h"
#include "secureapp/crypto/Der.h"
#include "secureapp/crypto/Digest.h"

namespace lumo::secureapp {
namespace {

constexpr uint64_t kLeafSerial = 1;
constexpr std::string_view kLeafName = "Android Keystore Key";

std::vector<KeyUsage> keyUsages(const ParamSet& authorizations) {
    constexpr struct {
        keymaster_purpose_t purpose;
        KeyUsage usage;
    } kUsages[] = {
        {KM_PURPOSE_SIGN, KeyUsage::kDigitalSignature},
        {KM_PURPOSE_DECRYPT, KeyUsage::kDataEncipherment},
        {KM_PURPOSE_WRAP, KeyUsage::kKeyEncipherment},
    };
    std::vector<KeyUsage> usages;
    for (const auto& candidate : kUsages) {
        if (authorizations.contains(KM_TAG_PURPOSE, candidate.purpose)) {
            usages.push_back(candidate.usage);
        }
    }
    return usages;
}

Bytes notBefore(const LeafRequest& request) {
    const ParamSet& params = request.authorizations;
    const uint64_t created = params.integer(KM_TAG_CREATION_DATETIME).value_or(request.now);
    return certificateTime(params.integer(KM_TAG_ACTIVE_DATETIME).value_or(created));
}

Bytes notAfter(const LeafRequest& request, const IssuerFields& issuer) {
    const auto expires = request.authorizations.integer(KM_TAG_USAGE_EXPIRE_DATETIME);
    return expires ? certificateTime(*expires) : issuer.not_after.copy();
}

std::vector<Bytes> leafExtensions(const LeafRequest& request, EVP_PKEY* batch_key) {
    std::vector<Bytes> extensions;
    const std::vector<KeyUsage> usages = keyUsages(request.authorizations);
    if (!usages.empty()) extensions.push_back(keyUsageExtension(usages));
    extensions.push_back(extension(der::objectIdentifier({1, 3, 6, 1, 4, 1, 11129, 2, 1, 17}),
                                   false, encodeKeyDescription(request.description)));
    extensions.push_back(authorityKeyIdentifierExtension(batch_key));
    return extensions;
}

}  // namespace

Bytes encodeKeyDescription(const KeyDescription& description) {
    const uint32_t version = description.attestation_version;
    return der::sequence({
        der::integer(version),
        der::integer(description.security_level, der::kEnumerated),
        der::integer(description.keymaster_version),
        der::integer(description.security_level, der::kEnumerated),
        der::octetString(description.challenge),
        der::octetString(description.unique_id),
        encodeAttestedList(description.software, nullptr, version),
        encodeAttestedList(description.hardware, &description.root_of_trust, version),
    });
}

Bytes makeLeafCertificate(const LeafRequest& request, EVP_PKEY* batch_key,
                          ByteView batch_certificate) {
    const IssuerFields issuer = readIssuer(batch_certificate);
    CertificateFields fields;
    fields.serial = kLeafSerial;
    fields.issuer = issuer.subject.copy();
    fields.not_before = notBefore(request);
    fields.not_after = notAfter(request, issuer);
    fields.subject = commonName(kLeafName);
    fields.public_key = request.public_key;
    fields.extensions = leafExtensions(request, batch_key);
    return signCertificate(fields, batch_key);
}

Bytes uniqueId(ByteView secret, uint64_t creation_millis, ByteView application_id,
               bool reset_since_rotation) {
    constexpr uint64_t kPeriodMillis = 2'592'000'000;  // 30 days
    constexpr size_t kUniqueIdBytes = 16;
    const uint64_t period = creation_millis / kPeriodMillis;
    Bytes message;
    appendBig(message, period, sizeof(period));
    append(message, application_id);
    message.push_back(reset_since_rotation ? 1 : 0);
    Bytes id = hmacSha256(secret, message);
    id.resize(kUniqueIdBytes);
    return id;
}

}  // namespace lumo::secureapp
