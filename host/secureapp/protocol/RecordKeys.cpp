#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/keys/KeyMaterial.h"
#include "secureapp/protocol/EcConversions.h"
#include "secureapp/protocol/RecordCommands.h"

namespace lumo::secureapp::records {

Bytes generateKey(Keymaster& keymaster, const RecordCall& call) {
    enum GenerateRequest : size_t { kGenerateParams = 1, kGenerateRequestWords = 3 };
    const RecordReader request(call.request, kGenerateRequestWords);
    return blobReply(keymaster.generateKey(request.params(kGenerateParams)));
}

// Answers with the blob: the client reads the characteristics out of it.
Bytes getCharacteristics(Keymaster& keymaster, const RecordCall& call) {
    enum CharacteristicsRequest : size_t {
        kCharacteristicsBlob = 1,
        kCharacteristicsClientId = 3,
        kCharacteristicsAppData = 5,
        kCharacteristicsRequestWords = 7,
    };
    const RecordReader request(call.request, kCharacteristicsRequestWords);
    const ByteView blob = request.item(kCharacteristicsBlob);
    keymaster.characteristics(blob, bindingOf(request.item(kCharacteristicsClientId),
                                              request.item(kCharacteristicsAppData)));
    return blobReply(blob);
}

namespace {

enum ImportRequest : size_t {
    kImportFormat = 1,
    kImportParams = 2,
    kImportData = 4,
    kImportRequestWords = 6,
};

// The EC key record within an import: the key size, then three items.
enum EcKeyRecord : size_t { kEcBits, kEcScalar, kEcX = 3, kEcY = 5, kEcKeyRecordWords = 7 };

EcKeyParts readEcKey(const RecordReader& request) {
    const uint32_t start = request.word(kImportData);
    const RecordReader record(request.itemAt(start, kEcKeyRecordWords * kWordBytes),
                              kEcKeyRecordWords);
    const auto part = [&](size_t index) {
        return request.itemAt(record.word(index), record.word(index + 1));
    };
    // The header gives the end of the last number instead of its length.
    const uint64_t end = uint64_t{record.word(kEcY)} + record.word(kEcY + 1);
    if (request.word(kImportData + 1) != end) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the EC key's record ends at byte ", end,
               ", the request says ", request.word(kImportData + 1));
    }
    return {record.word(kEcBits), part(kEcScalar), part(kEcX), part(kEcY)};
}

}  // namespace

Bytes importKey(Keymaster& keymaster, const Profile& profile, const RecordCall& call) {
    const RecordReader request(call.request, kImportRequestWords);
    const uint32_t format = request.word(kImportFormat);
    const ParamSet params = request.params(kImportParams);
    const bool as_record =
        !profile.converts_ec_keys && params.integer(KM_TAG_ALGORITHM) == uint64_t{KM_ALGORITHM_EC};
    if (as_record) {
        const Bytes pkcs8 = ecPrivateKey(readEcKey(request));
        return blobReply(keymaster.importKey(params, format, pkcs8));
    }
    return blobReply(keymaster.importKey(params, format, request.item(kImportData)));
}

Bytes importWrappedKey(Keymaster& keymaster, const RecordCall& call) {
    // The vectors come in this order.
    enum WrappedRequest : size_t {
        kPasswordSid = 1,
        kBiometricSid = 3,
        kWrappingBlob = 5,
        kWrappedKey = 7,
        kMaskingKey = 9,
        kUnwrappingParams = 11,
        kWrappedRequestWords = 13,
    };
    enum WrappedReply : size_t { kWrappedBlob = 1, kWrappedReplyWords = 3 };
    const RecordReader request(call.request, kWrappedRequestWords);
    const Bytes blob =
        keymaster.importWrappedKey(request.item(kWrappedKey), request.item(kWrappingBlob),
                                   request.item(kMaskingKey), request.params(kUnwrappingParams),
                                   request.longWord(kPasswordSid), request.longWord(kBiometricSid));
    RecordWriter reply(kWrappedReplyWords);
    reply.append(kWrappedBlob, blob);
    return reply.finish();
}

namespace {

enum ExportRequest : size_t {
    kExportBlob = 1,
    kExportFormat = 3,
    kExportClientId = 4,
    kExportAppData = 6,
    kExportRequestWords = 8,
};
enum ExportReply : size_t { kExportAlgorithm = 2, kExportData = 3, kExportReplyWords = 5 };

enum RsaKeyRecord : size_t { kRsaModulus, kRsaExponent = 2, kRsaKeyRecordWords = 4 };
enum EcPublicRecord : size_t { kEcPublicX = 3, kEcPublicY = 5, kEcPublicRecordWords = 7 };

// The offsets in a public key's record count from the record's start.
Bytes publicKeyRecord(const PublicKeyParts& key) {
    if (key.algorithm == KM_ALGORITHM_RSA) {
        RecordWriter record(kRsaKeyRecordWords);
        record.append(kRsaModulus, key.modulus);
        record.append(kRsaExponent, key.exponent);
        return record.finish();
    }
    RecordWriter record(kEcPublicRecordWords);
    record.append(kEcPublicX, key.x);
    record.append(kEcPublicY, key.y);
    return record.finish();
}

}  // namespace

Bytes exportKey(Keymaster& keymaster, const Profile& profile, const RecordCall& call) {
    const RecordReader request(call.request, kExportRequestWords);
    const uint32_t format = request.word(kExportFormat);
    const ByteView blob = request.item(kExportBlob);
    const ParamSet binding = bindingOf(request.item(kExportClientId), request.item(kExportAppData));
    const OutputPlace place = readOutputPlace(call, kExportData, kExportReplyWords);

    const PublicKeyParts parts = keymaster.exportKeyParts(format, blob, binding);
    const Bytes data = profile.encodes_public_keys ? keymaster.exportKey(format, blob, binding)
                                                   : publicKeyRecord(parts);
    RecordWriter header(kExportReplyWords);
    header.word(kExportAlgorithm, parts.algorithm);
    return replyWithOutput(std::move(header), place, data, kExportData);
}

// The offsets in the table of certificates count from the table's start.
Bytes attestKey(Keymaster& keymaster, const RecordCall& call) {
    // The dates (words 5 to 22) repeat those in the blob, which the keymaster uses.
    enum AttestRequest : size_t { kAttestBlob = 1, kAttestParams = 3, kAttestRequestWords = 23 };
    enum AttestReply : size_t {
        kCertificateTable = 2,
        kCertificateCount = 4,
        kAttestReplyWords = 5
    };
    enum CertificateEntry : size_t { kCertificate, kCertificateEntryWords = 2 };
    const RecordReader request(call.request, kAttestRequestWords);
    const std::vector<Bytes> chain =
        keymaster.attestKey(request.item(kAttestBlob), request.params(kAttestParams));

    RecordWriter table(chain.size() * kCertificateEntryWords);
    for (size_t i = 0; i < chain.size(); ++i) {
        table.append(i * kCertificateEntryWords + kCertificate, chain[i]);
    }
    RecordWriter reply(kAttestReplyWords);
    reply.append(kCertificateTable, table.finish());
    reply.word(kCertificateCount, static_cast<uint32_t>(chain.size()));
    return reply.finish();
}

Bytes upgradeKey(Keymaster& keymaster, const RecordCall& call) {
    enum UpgradeRequest : size_t { kUpgradeBlob = 1, kUpgradeParams = 3, kUpgradeRequestWords = 5 };
    const RecordReader request(call.request, kUpgradeRequestWords);
    return blobReply(
        keymaster.upgradeKey(request.item(kUpgradeBlob), request.params(kUpgradeParams)));
}

Bytes deleteKey(Keymaster& keymaster, const RecordCall& call) {
    enum DeleteRequest : size_t { kDeleteBlob = 1, kDeleteRequestWords = 3 };
    const RecordReader request(call.request, kDeleteRequestWords);
    keymaster.deleteKey(request.item(kDeleteBlob));
    return statusReply();
}

Bytes deleteAllKeys(Keymaster& keymaster, const RecordCall&) {
    keymaster.deleteAllKeys();
    return statusReply();
}

}  // namespace lumo::secureapp::records
