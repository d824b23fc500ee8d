#include "secureapp/attestation/AttestationKeys.h"

#include "secureapp/attestation/Certificate.h"
#include "secureapp/attestation/FixedAttestationKeys.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/Der.h"
#include "secureapp/crypto/PrivateKey.h"

namespace lumo::secureapp {
namespace {

constexpr uint32_t kRsaBits = 2048;
constexpr uint64_t kRsaExponent = 65537;

constexpr char kRootRecord[] = "attestation-root";
constexpr char kRsaRecord[] = "attestation-rsa";
constexpr char kEcRecord[] = "attestation-ec";
constexpr char kDeviceRecord[] = "attestation-device";
constexpr char kTestDeviceRecord[] = "attestation-device-test";  // under the fixed test root

// Serial numbers under the root.
constexpr uint64_t kRootSerial = 1;
constexpr uint64_t kRsaBatchSerial = 2;
constexpr uint64_t kEcBatchSerial = 3;
constexpr uint64_t kDeviceSerial = 4;

// All certificates above the leaf: 2020-01-01 to 2049-12-31, 23:59:59.
constexpr uint64_t kValidFrom = 1577836800000;
constexpr uint64_t kValidTo = 2524607999000;

// A certificate that may sign others.
struct Authority {
    std::string name;
    uint64_t serial;
    EVP_PKEY* key;
};

Bytes authorityCertificate(const Authority& subject, const Authority& issuer) {
    CertificateFields fields;
    fields.serial = subject.serial;
    fields.issuer = commonName(issuer.name);
    fields.not_before = certificateTime(kValidFrom);
    fields.not_after = certificateTime(kValidTo);
    fields.subject = commonName(subject.name);
    fields.public_key = encodePublicKey(subject.key);
    fields.extensions = {
        extension(der::objectIdentifier({2, 5, 29, 19}), true,  // basicConstraints
                  der::sequence({der::boolean(true)})),
        keyUsageExtension({KeyUsage::kKeyCertSign}),
        subjectKeyIdentifierExtension(subject.key),
        authorityKeyIdentifierExtension(issuer.key),
    };
    return signCertificate(fields, issuer.key);
}

Authority rootAuthority(const DeviceConfig& config, keymaster_security_level_t level,
                        EVP_PKEY* key) {
    if (config.test_attestation_keys) {
        return {"Lumo Test Attestation Root - NOT FOR PRODUCTION", kRootSerial, key};
    }
    const bool strongbox = level == KM_SECURITY_LEVEL_STRONGBOX;
    return {strongbox ? "Lumo StrongBox Attestation Root" : "Lumo Attestation Root", kRootSerial,
            key};
}

Authority batchAuthority(const DeviceConfig& config, uint32_t algorithm, EVP_PKEY* key) {
    const bool rsa = algorithm == KM_ALGORITHM_RSA;
    const std::string name = rsa ? "RSA Attestation Batch" : "EC Attestation Batch";
    return {config.test_attestation_keys ? "Lumo Test " + name + " - NOT FOR PRODUCTION"
                                         : "Lumo " + name,
            rsa ? kRsaBatchSerial : kEcBatchSerial, key};
}

CryptoPtr<EVP_PKEY> testKey(const char* digits) {
    Bytes pkcs8;
    for (const char* digit = digits; *digit != '\0'; digit += 2) {
        pkcs8.push_back(static_cast<uint8_t>(std::stoul(std::string(digit, 2), nullptr, 16)));
    }
    CryptoPtr<EVP_PKEY> key = parsePrivateKey(pkcs8);
    if (key == nullptr) {
        refuse(KM_ERROR_ATTESTATION_KEYS_NOT_PROVISIONED, "libcrypto does not take the test keys");
    }
    return key;
}

// A record: SEQUENCE of OCTET STRING, the PKCS#8 key and the certificates of the chain.
Bytes encodeRecord(const AttestationKey& key) {
    Bytes contents = der::octetString(encodePrivateKey(key.key.get()));
    for (const Bytes& certificate : key.chain) {
        const Bytes part = der::octetString(certificate);
        append(contents, part);
    }
    return der::item(der::kSequence, contents);
}

AttestationKey decodeRecord(const std::string& name, ByteView record) {
    AttestationKey decoded;
    try {
        der::Reader parts = der::Reader(record).enter(der::kSequence);
        // Checked when it was made.
        decoded.key = openPrivateKey(parts.next(der::kOctetString).contents);
        while (!parts.atEnd()) {
            decoded.chain.push_back(parts.next(der::kOctetString).contents.copy());
            readIssuer(decoded.chain.back());
        }
    } catch (const Refusal&) {
        decoded.key = nullptr;
    }
    if (decoded.key == nullptr || decoded.chain.empty()) {
        throw StateError("the record " + name +
                         " of the attestation keys is damaged; without it, new keys are made");
    }
    return decoded;
}

// The record `name`; made by `make` where there is none yet.
template <typename Make>
AttestationKey storedKey(State& state, const std::string& name, Make make) {
    std::optional<Bytes> record = state.read(name);
    if (!record) {
        const Bytes made = encodeRecord(make());
        state.update(name, [&](const std::optional<Bytes>& other) -> std::optional<Bytes> {
            record = other.value_or(made);
            return record;
        });
    }
    return decodeRecord(name, *record);
}

AttestationKey rootOver(const DeviceConfig& config, keymaster_security_level_t level,
                        CryptoPtr<EVP_PKEY> key) {
    const Authority self = rootAuthority(config, level, key.get());
    AttestationKey root;
    root.chain = {authorityCertificate(self, self)};
    root.key = std::move(key);
    return root;
}

AttestationKey rootKey(State& state, const DeviceConfig& config, keymaster_security_level_t level) {
    if (config.test_attestation_keys) return rootOver(config, level, testKey(kTestRootKey));
    return storedKey(state, kRootRecord,
                     [&] { return rootOver(config, level, makeRsaKey(kRsaBits, kRsaExponent)); });
}

AttestationKey batchUnder(const AttestationKey& root, const DeviceConfig& config,
                          keymaster_security_level_t level, uint32_t algorithm,
                          CryptoPtr<EVP_PKEY> key) {
    AttestationKey batch;
    batch.chain = {authorityCertificate(batchAuthority(config, algorithm, key.get()),
                                        rootAuthority(config, level, root.key.get())),
                   root.chain.front()};
    batch.key = std::move(key);
    return batch;
}

}  // namespace

AttestationKey attestationKey(State& state, const DeviceConfig& config,
                              keymaster_security_level_t level, uint32_t algorithm) {
    const bool rsa = algorithm == KM_ALGORITHM_RSA;
    if (config.test_attestation_keys) {
        return batchUnder(rootKey(state, config, level), config, level, algorithm,
                          testKey(rsa ? kTestRsaBatchKey : kTestEcBatchKey));
    }
    return storedKey(state, rsa ? kRsaRecord : kEcRecord, [&] {
        return batchUnder(rootKey(state, config, level), config, level, algorithm,
                          rsa ? makeRsaKey(kRsaBits, kRsaExponent) : makeEcKey(KM_EC_CURVE_P_256));
    });
}

AttestationKey deviceAttestationKey(State& state, const DeviceConfig& config,
                                    keymaster_security_level_t level) {
    const bool test = config.test_attestation_keys;
    return storedKey(state, test ? kTestDeviceRecord : kDeviceRecord, [&] {
        const AttestationKey root = rootKey(state, config, level);
        AttestationKey device;
        device.key = makeEcKey(KM_EC_CURVE_P_256);
        const Authority subject = {
            test ? "Lumo Test Device - NOT FOR PRODUCTION" : "Lumo StrongBox Device", kDeviceSerial,
            device.key.get()};
        device.chain = {
            authorityCertificate(subject, rootAuthority(config, level, root.key.get()))};
        return device;
    });
}

Bytes attestationRoot(State& state, const DeviceConfig& config, keymaster_security_level_t level) {
    return rootKey(state, config, level).chain.front();
}

}  // namespace lumo::secureapp
