#include "secureapp/protocol/RecordProtocol.h"

#include "secureapp/protocol/Commands.h"
#include "secureapp/protocol/EcConversions.h"
#include "secureapp/protocol/RecordReader.h"
#include "secureapp/protocol/SharingRecords.h"

// Each record is a table of word indices. A set of parameters takes two words (offset, count), an
// item two (offset, length), a 64-bit number two (low, high); each is named by its first word.

namespace lumo::secureapp {
namespace {

enum CommandWord : size_t { kCommandId };
enum StatusReply : size_t { kStatus, kStatusWords };

// The new or unchanged key blob.
enum BlobReply : size_t { kReplyBlob = 2, kBlobReplyWords = 4 };

enum ParamsRequest : size_t { kParams = 1, kParamsRequestWords = 3 };
enum DeleteRequest : size_t { kDeleteBlob = 1, kDeleteRequestWords = 3 };
enum DestroyIdsRequest : size_t { kDestroyZero = 1, kDestroyIdsRequestWords };

enum CharacteristicsRequest : size_t {
    kCharacteristicsBlob = 1,
    kCharacteristicsClientId = 3,
    kCharacteristicsAppData = 5,
    kCharacteristicsRequestWords = 7,
};

enum ImportRequest : size_t {
    kImportFormat = 1,
    kImportParams = 2,
    kImportData = 4,
    kImportRequestWords = 6,
};

// The EC key record within an import: the key size, then three items.
enum EcKeyRecord : size_t { kEcBits, kEcScalar, kEcX = 3, kEcY = 5, kEcKeyRecordWords = 7 };

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

enum UpgradeRequest : size_t { kUpgradeBlob = 1, kUpgradeParams = 3, kUpgradeRequestWords = 5 };

// The dates (words 5 to 22) repeat what stands in the blob, where the keymaster takes them from.
enum AttestRequest : size_t { kAttestBlob = 1, kAttestParams = 3, kAttestRequestWords = 23 };
enum AttestReply : size_t { kCertificateTable = 2, kCertificateCount = 4, kAttestReplyWords = 5 };
enum CertificateEntry : size_t { kCertificate, kCertificateEntryWords = 2 };

// The vectors stand in this order.
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

enum BeginRequest : size_t {
    kPurpose = 1,
    kBeginBlob = 2,
    kBeginParams = 4,
    kBeginRequestWords = 6,
};
enum BeginReply : size_t {
    kBeginHandle = 2,
    kBeginAlgorithm = 4,
    kNonce = 5,
    kNonceLength = 9,
    kBeginReplyWords,
};
// The sharing check and the MAC of a token are HMAC-SHA-256 values.
constexpr size_t kMacBytes = 32;

constexpr size_t kNonceArea = (kNonceLength - kNonce) * kWordBytes;

// Update and finish begin alike; abort has the handle only.
enum OperationRequest : size_t {
    kHandle = 1,
    kAbortRequestWords = 3,
    kOperationParams = 3,
    kInput = 5,
    kUpdateRequestWords = 7,
    kSignature = 7,
    kFinishRequestWords = 9,
};
enum OperationReply : size_t {
    kOutput = 2,
    kFinishReplyWords = 4,
    kConsumed = 4,
    kUpdateReplyWords,
};
// A signature as its numbers.
enum SignatureRecord : size_t { kSignatureR, kSignatureS = 2, kSignatureRecordWords = 4 };

enum SharingReply : size_t { kSharingSeed = 1, kSharingNonce = 9, kSharingReplyWords = 17 };
enum ComputeRequest : size_t { kSharingOffset = 1, kSharingCount, kComputeRequestWords };
enum ComputeReply : size_t { kSharingCheck = 1, kComputeReplyWords = 9 };

enum VerifyRequest : size_t { kChallenge = 1, kVerifyRequestWords = 3 };
enum VerifyReply : size_t {
    kTokenChallenge = 1,
    kTokenTimestamp = 3,
    kTokenLevel = 5,
    kTokenMac = 6,
    kVerifyReplyWords = 14,
};

enum DateSupportRequest : size_t { kDateSupportRequestWords = 3 };

enum RootOfTrustRequest : size_t { kVerifiedBootKey = 1, kRootOfTrustRequestWords = 3 };
constexpr size_t kVerifiedBootKeyBytes = 32;

// The second request of the boot loader. Its header says that the body lies at byte 16; the sender
// places it behind what it sent in the first request, at byte 60, and what lies between is left
// over from there.
enum BootStateRequest : size_t {
    kBootStateZero = 1,
    kBootStateOffset,
    kBootStateLength,
    kBootStateHeaderWords,
};
constexpr uint32_t kBootStateSaidOffset = 16;
constexpr size_t kBootStateBody = 60;
constexpr size_t kBootStateRequestBytes = 108;
enum BootStateBody : size_t {
    kBootLocked,
    kBootKeyStart,
    kBootFiller,
    kBootColor = 9,
    kBootVersion,
    kBootPatchlevel,
    kBootStateBodyWords,
};
static_assert(kBootStateBody + kBootStateBodyWords * kWordBytes == kBootStateRequestBytes,
              "the body ends the request");

Bytes okay() {
    return RecordWriter(kStatusWords).finish();
}

Bytes blobReply(ByteView blob) {
    RecordWriter reply(kBlobReplyWords);
    reply.append(kReplyBlob, blob);
    return reply.finish();
}

// What a key may be bound to, as the keymaster takes it.
ParamSet bindingOf(ByteView client_id, ByteView app_data) {
    ParamSet binding;
    if (!client_id.empty()) binding.add(bytesParam(KM_TAG_APPLICATION_ID, client_id));
    if (!app_data.empty()) binding.add(bytesParam(KM_TAG_APPLICATION_DATA, app_data));
    return binding;
}

Bytes configure(Keymaster& keymaster, ByteView bytes) {
    const RecordReader request(bytes, kParamsRequestWords);
    keymaster.configure(request.params(kParams));
    return okay();
}

Bytes generateKey(Keymaster& keymaster, ByteView bytes) {
    const RecordReader request(bytes, kParamsRequestWords);
    return blobReply(keymaster.generateKey(request.params(kParams)));
}

// Answers with the blob: the client reads the characteristics out of it.
Bytes getCharacteristics(Keymaster& keymaster, ByteView bytes) {
    const RecordReader request(bytes, kCharacteristicsRequestWords);
    const ByteView blob = request.item(kCharacteristicsBlob);
    keymaster.characteristics(blob, bindingOf(request.item(kCharacteristicsClientId),
                                              request.item(kCharacteristicsAppData)));
    return blobReply(blob);
}

Bytes upgradeKey(Keymaster& keymaster, ByteView bytes) {
    const RecordReader request(bytes, kUpgradeRequestWords);
    return blobReply(
        keymaster.upgradeKey(request.item(kUpgradeBlob), request.params(kUpgradeParams)));
}

// The offsets in the table of certificates count from the table's start.
Bytes attestKey(Keymaster& keymaster, ByteView bytes) {
    const RecordReader request(bytes, kAttestRequestWords);
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

Bytes deleteKey(Keymaster& keymaster, ByteView bytes) {
    const RecordReader request(bytes, kDeleteRequestWords);
    keymaster.deleteKey(request.item(kDeleteBlob));
    return okay();
}

Bytes deleteAllKeys(Keymaster& keymaster) {
    keymaster.deleteAllKeys();
    return okay();
}

Bytes destroyDeviceIds(Keymaster& keymaster, ByteView bytes) {
    const RecordReader request(bytes, kDestroyIdsRequestWords);
    if (request.word(kDestroyZero) != 0) refuse(KM_ERROR_INVALID_ARGUMENT);
    keymaster.destroyDeviceIds();
    return okay();
}

Bytes importWrappedKey(Keymaster& keymaster, ByteView bytes) {
    const RecordReader request(bytes, kWrappedRequestWords);
    const Bytes blob =
        keymaster.importWrappedKey(request.item(kWrappedKey), request.item(kWrappingBlob),
                                   request.item(kMaskingKey), request.params(kUnwrappingParams),
                                   request.longWord(kPasswordSid), request.longWord(kBiometricSid));
    RecordWriter reply(kWrappedReplyWords);
    reply.append(kWrappedBlob, blob);
    return reply.finish();
}

Bytes getSharingParameters(Keymaster& keymaster) {
    const HmacSharingParameters& own = keymaster.hmacSharingParameters();
    if (own.nonce.size() != kSharingNonceBytes) refuse(KM_ERROR_UNKNOWN_ERROR);
    RecordWriter reply(kSharingReplyWords);
    reply.fill(kSharingSeed, wireSeed(own));
    reply.fill(kSharingNonce, own.nonce);
    return reply.finish();
}

Bytes computeSharedHmac(Keymaster& keymaster, ByteView bytes) {
    const RecordReader request(bytes, kComputeRequestWords);
    const uint32_t count = request.word(kSharingCount);
    if (count > bytes.size() / kSharingRecordBytes) refuse(KM_ERROR_INVALID_ARGUMENT);
    const ByteView records = request.itemAt(request.word(kSharingOffset),
                                            count * static_cast<uint32_t>(kSharingRecordBytes));
    const Bytes check = keymaster.computeSharedHmac(readSharingRecords(records));
    if (check.size() != kMacBytes) refuse(KM_ERROR_UNKNOWN_ERROR);
    RecordWriter reply(kComputeReplyWords);
    reply.fill(kSharingCheck, check);
    return reply.finish();
}

Bytes verifyAuthorization(Keymaster& keymaster, ByteView bytes) {
    const RecordReader request(bytes, kVerifyRequestWords);
    const VerificationToken token = keymaster.verifyAuthorization(request.longWord(kChallenge));
    if (token.mac.size() != kMacBytes) refuse(KM_ERROR_UNKNOWN_ERROR);
    RecordWriter reply(kVerifyReplyWords);
    reply.longWord(kTokenChallenge, token.challenge);
    reply.longWord(kTokenTimestamp, token.timestamp);
    reply.word(kTokenLevel, token.security_level);
    reply.fill(kTokenMac, token.mac);
    return reply.finish();
}

Bytes setRootOfTrust(Keymaster& keymaster, ByteView bytes) {
    const RecordReader request(bytes, kRootOfTrustRequestWords);
    const ByteView key = request.item(kVerifiedBootKey);
    if (key.size() != kVerifiedBootKeyBytes) refuse(KM_ERROR_INVALID_ARGUMENT);
    keymaster.setRootOfTrust(key);
    return okay();
}

Bytes setBootState(Keymaster& keymaster, ByteView bytes) {
    const RecordReader request(bytes, kBootStateHeaderWords);
    const bool as_sent = bytes.size() == kBootStateRequestBytes &&
                         request.word(kBootStateZero) == 0 &&
                         request.word(kBootStateOffset) == kBootStateSaidOffset &&
                         request.word(kBootStateLength) == kBootStateBodyWords * kWordBytes;
    if (!as_sent) refuse(KM_ERROR_INVALID_ARGUMENT);
    const RecordReader body(bytes.sub(kBootStateBody), kBootStateBodyWords);
    if (body.word(kBootLocked) > 1) refuse(KM_ERROR_INVALID_ARGUMENT);
    for (size_t word = kBootFiller; word < kBootColor; ++word) {
        if (body.word(word) != UINT32_MAX) refuse(KM_ERROR_INVALID_ARGUMENT);
    }
    keymaster.setBootState(body.word(kBootLocked) != 0, body.word(kBootColor),
                           body.word(kBootVersion), body.word(kBootPatchlevel));
    return okay();
}

EcKeyParts readEcKey(const RecordReader& request) {
    const uint32_t start = request.word(kImportData);
    const RecordReader record(request.itemAt(start, kEcKeyRecordWords * kWordBytes),
                              kEcKeyRecordWords);
    const auto part = [&](size_t index) {
        return request.itemAt(record.word(index), record.word(index + 1));
    };
    // In place of a length the header gives the end of the last number.
    const uint64_t end = uint64_t{record.word(kEcY)} + record.word(kEcY + 1);
    if (request.word(kImportData + 1) != end) refuse(KM_ERROR_INVALID_ARGUMENT);
    return {record.word(kEcBits), part(kEcScalar), part(kEcX), part(kEcY)};
}

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

// The signature of a verification: a record of its two numbers at the signature's place.
Bytes readSignature(const RecordReader& request) {
    const ByteView whole = request.item(kSignature);
    const RecordReader record(whole, kSignatureRecordWords);
    const ByteView r = request.itemAt(record.word(kSignatureR), record.word(kSignatureR + 1));
    const ByteView s = request.itemAt(record.word(kSignatureS), record.word(kSignatureS + 1));
    if (whole.size() != kSignatureRecordWords * kWordBytes + r.size() + s.size()) {
        refuse(KM_ERROR_INVALID_ARGUMENT);
    }
    return ecDerSignature(r, s);
}

uint32_t ecBits(const ParamSet& key) {
    if (const auto curve = key.integer(KM_TAG_EC_CURVE)) {
        return ecCurveBits(static_cast<uint32_t>(*curve));
    }
    return static_cast<uint32_t>(key.integer(KM_TAG_KEY_SIZE).value_or(0));
}

// `header` with `output` at the client's place for it.
Bytes withOutput(RecordWriter header, size_t place, ByteView output, size_t offset_word) {
    header.word(offset_word, static_cast<uint32_t>(place));
    header.word(offset_word + 1, static_cast<uint32_t>(output.size()));
    Bytes reply = header.finish();
    reply.resize(place, 0);
    reply.insert(reply.end(), output.begin(), output.end());
    return reply;
}

}  // namespace

RecordProtocol::OutputPlace RecordProtocol::outputPlace(ByteView area, size_t capacity,
                                                        size_t offset_word, size_t header_words) {
    if (capacity < header_words * kWordBytes) refuse(KM_ERROR_INSUFFICIENT_BUFFER_SPACE);
    const RecordReader labels(area, header_words);
    const uint32_t offset = labels.word(offset_word);
    const uint32_t room = labels.word(offset_word + 1);
    if (offset < header_words * kWordBytes || offset > capacity) refuse(KM_ERROR_INVALID_ARGUMENT);
    if (room > capacity - offset) refuse(KM_ERROR_INVALID_ARGUMENT);
    return {offset, room};
}

Bytes RecordProtocol::importKey(ByteView bytes) {
    const RecordReader request(bytes, kImportRequestWords);
    const uint32_t format = request.word(kImportFormat);
    const ParamSet params = request.params(kImportParams);
    const bool as_record =
        !profile_.converts_ec_keys && params.integer(KM_TAG_ALGORITHM) == uint64_t{KM_ALGORITHM_EC};
    if (as_record) {
        const Bytes pkcs8 = ecPrivateKey(readEcKey(request));
        return blobReply(keymaster_.importKey(params, format, pkcs8));
    }
    return blobReply(keymaster_.importKey(params, format, request.item(kImportData)));
}

Bytes RecordProtocol::exportKey(ByteView bytes, ByteView area, size_t capacity) {
    const RecordReader request(bytes, kExportRequestWords);
    const uint32_t format = request.word(kExportFormat);
    const ByteView blob = request.item(kExportBlob);
    const ParamSet binding = bindingOf(request.item(kExportClientId), request.item(kExportAppData));
    const OutputPlace place = outputPlace(area, capacity, kExportData, kExportReplyWords);

    const PublicKeyParts parts = keymaster_.exportKeyParts(format, blob, binding);
    const Bytes data = profile_.encodes_public_keys ? keymaster_.exportKey(format, blob, binding)
                                                    : publicKeyRecord(parts);
    if (data.size() > place.room) refuse(KM_ERROR_INSUFFICIENT_BUFFER_SPACE);
    RecordWriter header(kExportReplyWords);
    header.word(kExportAlgorithm, parts.algorithm);
    return withOutput(std::move(header), place.offset, data, kExportData);
}

void RecordProtocol::trackEcOperation(const BeginResult& begun, uint32_t purpose, ByteView blob,
                                      const ParamSet& params) {
    if (begun.algorithm != KM_ALGORITHM_EC) return;
    if (purpose == KM_PURPOSE_VERIFY) ec_operations_[begun.handle] = {};
    if (purpose != KM_PURPOSE_SIGN) return;
    try {
        const OpenedKey key = keymaster_.characteristics(blob, params);
        ec_operations_[begun.handle] = {true, ecWidth(ecBits(key.all()))};
    } catch (...) {
        keymaster_.abort(begun.handle);
        throw;
    }
}

void RecordProtocol::forgetEnded() {
    for (auto each = ec_operations_.begin(); each != ec_operations_.end();) {
        each = keymaster_.isRunning(each->first) ? std::next(each) : ec_operations_.erase(each);
    }
}

Bytes RecordProtocol::begin(ByteView bytes) {
    const RecordReader request(bytes, kBeginRequestWords);
    const uint32_t purpose = request.word(kPurpose);
    const ByteView blob = request.item(kBeginBlob);
    const ParamSet params = request.params(kBeginParams);

    const BeginResult begun = keymaster_.begin(purpose, blob, params);
    const ByteView nonce = begun.out_params.bytes(KM_TAG_NONCE);
    if (nonce.size() > kNonceArea) {
        keymaster_.abort(begun.handle);
        refuse(KM_ERROR_UNKNOWN_ERROR);
    }
    trackEcOperation(begun, purpose, blob, params);
    RecordWriter reply(kBeginReplyWords);
    reply.longWord(kBeginHandle, begun.handle);
    reply.word(kBeginAlgorithm, begun.algorithm);
    reply.fill(kNonce, nonce);
    reply.word(kNonceLength, static_cast<uint32_t>(nonce.size()));
    return reply.finish();
}

Bytes RecordProtocol::update(ByteView bytes, ByteView area, size_t capacity) {
    const RecordReader request(bytes, kUpdateRequestWords);
    const uint64_t handle = request.longWord(kHandle);
    const ParamSet params = request.params(kOperationParams);
    const ByteView input = request.item(kInput);
    const OutputPlace place = outputPlace(area, capacity, kOutput, kUpdateReplyWords);

    // An operation whose update fails is over.
    auto tracked = ec_operations_.extract(handle);
    const UpdateResult result = keymaster_.update(handle, params, input);
    if (result.output.size() > place.room) {
        keymaster_.abort(handle);
        refuse(KM_ERROR_INSUFFICIENT_BUFFER_SPACE);
    }
    ec_operations_.insert(std::move(tracked));
    RecordWriter header(kUpdateReplyWords);
    header.word(kConsumed, result.consumed);
    return withOutput(std::move(header), place.offset, result.output, kOutput);
}

Bytes RecordProtocol::finish(ByteView bytes, ByteView area, size_t capacity) {
    const RecordReader request(bytes, kFinishRequestWords);
    const uint64_t handle = request.longWord(kHandle);
    const ParamSet params = request.params(kOperationParams);
    const ByteView input = request.item(kInput);
    const OutputPlace place = outputPlace(area, capacity, kOutput, kFinishReplyWords);

    const auto tracked = ec_operations_.find(handle);
    const std::optional<EcOperation> ec =
        tracked == ec_operations_.end() ? std::nullopt : std::optional(tracked->second);
    const bool as_numbers = ec && !ec->signs && request.word(kSignature + 1) != 0;
    const Bytes signature = as_numbers ? readSignature(request) : request.item(kSignature).copy();

    if (ec) ec_operations_.erase(tracked);
    Bytes output = keymaster_.finish(handle, params, input, signature);
    if (ec && ec->signs) output = ecRawSignature(output, ec->width);
    if (output.size() > place.room) refuse(KM_ERROR_INSUFFICIENT_BUFFER_SPACE);
    return withOutput(RecordWriter(kFinishReplyWords), place.offset, output, kOutput);
}

Bytes RecordProtocol::abort(ByteView bytes) {
    const RecordReader request(bytes, kAbortRequestWords);
    const uint64_t handle = request.longWord(kHandle);
    ec_operations_.erase(handle);
    keymaster_.abort(handle);
    return okay();
}

Bytes RecordProtocol::dateSupport(ByteView bytes) {
    const RecordReader request(bytes, kDateSupportRequestWords);
    if (!profile_.date_support) refuse(KM_ERROR_INVALID_TAG);
    return okay();
}

Bytes RecordProtocol::handle(ByteView request, ByteView area, size_t capacity) {
    const uint32_t id = RecordReader(request, 1).word(kCommandId);
    const std::optional<Command> known =
        findRecordCommand(id, keymaster_.options().level, profile_.legacy);
    if (!known) refuse(KM_ERROR_UNIMPLEMENTED);
    switch (*known) {
        case Command::kConfigure:
            return configure(keymaster_, request);
        case Command::kGenerateKey:
            return generateKey(keymaster_, request);
        case Command::kGetCharacteristics:
            return getCharacteristics(keymaster_, request);
        case Command::kImportKey:
            return importKey(request);
        case Command::kImportWrappedKey:
            return importWrappedKey(keymaster_, request);
        case Command::kExportKey:
            return exportKey(request, area, capacity);
        case Command::kAttestKey:
            return attestKey(keymaster_, request);
        case Command::kUpgradeKey:
            return upgradeKey(keymaster_, request);
        case Command::kDeleteKey:
            return deleteKey(keymaster_, request);
        case Command::kDeleteAllKeys:
            return deleteAllKeys(keymaster_);
        case Command::kDestroyDeviceIds:
            return destroyDeviceIds(keymaster_, request);
        case Command::kBegin:
            return begin(request);
        case Command::kUpdate:
            return update(request, area, capacity);
        case Command::kFinish:
            return finish(request, area, capacity);
        case Command::kAbort:
            return abort(request);
        case Command::kGetSharingParameters:
            return getSharingParameters(keymaster_);
        case Command::kComputeSharedHmac:
            return computeSharedHmac(keymaster_, request);
        case Command::kVerifyAuthorization:
            return verifyAuthorization(keymaster_, request);
        case Command::kSetRootOfTrust:
            return setRootOfTrust(keymaster_, request);
        case Command::kSetBootState:
            return setBootState(keymaster_, request);
        case Command::kDateSupport:
            return dateSupport(request);
        default:
            refuse(KM_ERROR_UNIMPLEMENTED);
    }
}

// The client reads what an update consumed even when it failed: the words behind the status are 0.
Bytes RecordProtocol::refusal(keymaster_error_t status) {
    RecordWriter reply(kUpdateReplyWords);
    reply.word(kStatus, static_cast<uint32_t>(static_cast<int32_t>(status)));
    return reply.finish();
}

}  // namespace lumo::secureapp
