#include "secureapp/protocol/CborProtocol.h"

#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"
#include "secureapp/protocol/CborReader.h"
#include "secureapp/protocol/CborWriter.h"
#include "secureapp/protocol/Commands.h"
#include "secureapp/protocol/SharingRecords.h"

// Each command reads as its message: the entries of the request in their order, then the answer's.

namespace lumo::secureapp {
namespace {

// For commands whose answer the client ignores.
const Bytes kNoBody;

void requireNoBody(ByteView body) {
    if (!body.empty()) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the command has no message, and ", body.size(),
               " bytes came");
    }
}

Bytes oneEntry(Label label, ByteView value) {
    CborWriter reply(1);
    reply.bytes(label, value);
    return reply.finish();
}

Bytes configure(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const ParamSet params = request.params();
    request.finish();
    keymaster.configure(params);
    return kNoBody;
}

Bytes generateKey(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const ParamSet params = request.params();
    request.finish();
    return oneEntry(Label::kKeyBlob, keymaster.generateKey(params));
}

Bytes importKey(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const ParamSet params = request.params();
    const uint32_t format = request.number32(Label::kKeyFormat);
    const ByteView data = request.bytes(Label::kKeyData);
    request.finish();
    return oneEntry(Label::kKeyBlob, keymaster.importKey(params, format, data));
}

Bytes importWrappedKey(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const ParamSet params = request.params();
    const uint64_t password_sid = request.number(Label::kPasswordSid);
    const uint64_t biometric_sid = request.number(Label::kBiometricSid);
    const ByteView wrapped = request.bytes(Label::kWrappedKey);
    const ByteView wrapping_blob = request.bytes(Label::kWrappingKeyBlob);
    const ByteView masking_key = request.bytes(Label::kMaskingKey);
    request.finish();
    return oneEntry(Label::kKeyBlob,
                    keymaster.importWrappedKey(wrapped, wrapping_blob, masking_key, params,
                                               password_sid, biometric_sid));
}

Bytes exportKey(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const ParamSet binding = request.params();
    const ByteView blob = request.bytes(Label::kKeyBlob);
    const uint32_t format = request.number32(Label::kKeyFormat);
    request.finish();
    return oneEntry(Label::kOutput, keymaster.exportKey(format, blob, binding));
}

Bytes attestKey(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const ParamSet params = request.params();
    const ByteView blob = request.bytes(Label::kKeyBlob);
    // The dates repeat those in the blob, which the keymaster uses.
    request.skipDate(Label::kActiveDate);
    request.skipDate(Label::kExpiryDate);
    request.finish();

    const std::vector<Bytes> chain = keymaster.attestKey(blob, params);
    CborWriter reply(1 + chain.size());
    reply.number(Label::kCertificateCount, chain.size());
    for (const Bytes& certificate : chain) reply.bytes(Label::kCertificate, certificate);
    return reply.finish();
}

Bytes upgradeKey(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const ParamSet params = request.params();
    const ByteView blob = request.bytes(Label::kKeyBlob);
    request.finish();
    return oneEntry(Label::kKeyBlob, keymaster.upgradeKey(blob, params));
}

Bytes deleteKey(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const ByteView blob = request.bytes(Label::kKeyBlob);
    request.finish();
    keymaster.deleteKey(blob);
    return kNoBody;
}

Bytes deleteAllKeys(Keymaster& keymaster, ByteView body) {
    requireNoBody(body);
    keymaster.deleteAllKeys();
    return kNoBody;
}

Bytes destroyDeviceIds(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const bool flag = request.flag(Label::kDestroyFlag);
    request.finish();
    // No client sets the flag, and what it would ask for is not known.
    if (flag) refuse(KM_ERROR_INVALID_ARGUMENT, "the flag of a destruction of ids is set");
    keymaster.destroyDeviceIds();
    return kNoBody;
}

// Removes the purpose, which follows the client's own parameters, from the end of the set.
uint32_t removePurpose(ParamSet& params) {
    if (params.empty()) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "an operation begins with no parameters");
    }
    const Param last = params[params.size() - 1];
    if (last.tag != KM_TAG_PURPOSE) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the last parameter of begin is not PURPOSE but ",
               tagName(last.tag));
    }
    ParamSet before;
    for (size_t i = 0; i + 1 < params.size(); ++i) before.add(params[i]);
    params = std::move(before);
    return static_cast<uint32_t>(last.integer);
}

Bytes begin(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    ParamSet params = request.params();
    const uint32_t purpose = removePurpose(params);
    const ByteView blob = request.bytes(Label::kKeyBlob);
    request.finish();

    const BeginResult begun = keymaster.begin(purpose, blob, params);
    const bool has_params = !begun.out_params.empty();
    CborWriter reply(1 + (has_params ? 1 + begun.out_params.size() : 0));
    if (has_params) reply.bytesParams(begun.out_params);
    reply.number(Label::kHandle, begun.handle);
    return reply.finish();
}

Bytes update(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const uint64_t handle = request.number(Label::kHandle);
    const ParamSet params = request.optionalParams();
    const ByteView input = request.optionalBytes(Label::kInput);
    request.finish();

    CborWriter reply(2, input.size());
    reply.bytesIfAny(Label::kOutput, input.size(),
                     [&](Bytes& message) { keymaster.update(handle, params, input, message); });
    reply.number(Label::kConsumed, input.size());
    return reply.finish();
}

Bytes finish(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const uint64_t handle = request.number(Label::kHandle);
    const ParamSet params = request.optionalParams();
    const ByteView input = request.optionalBytes(Label::kInput);
    const ByteView signature = request.optionalBytes(Label::kSignature);
    request.finish();

    const Bytes output = keymaster.finish(handle, params, input, signature);
    CborWriter reply(output.empty() ? 0 : 1);
    if (!output.empty()) reply.bytes(Label::kOutput, output);
    return reply.finish();
}

Bytes abort(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const uint64_t handle = request.number(Label::kHandle);
    request.finish();
    keymaster.abort(handle);
    return kNoBody;
}

Bytes getSharingParameters(Keymaster& keymaster, ByteView body) {
    requireNoBody(body);
    const HmacSharingParameters& own = keymaster.hmacSharingParameters();
    CborWriter reply(2);
    reply.bytes(Label::kSharingSeed, wireSeed(own));
    reply.bytes(Label::kSharingNonce, own.nonce);
    return reply.finish();
}

Bytes computeSharedHmac(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const ByteView records = request.bytes(Label::kSharingRecords);
    request.finish();
    return oneEntry(Label::kSharingCheck, keymaster.computeSharedHmac(readSharingRecords(records)));
}

Bytes earlyBootEnded(Keymaster& keymaster, ByteView body) {
    requireNoBody(body);
    keymaster.earlyBootEnded();
    return kNoBody;
}

Bytes deviceLocked(Keymaster& keymaster, ByteView body) {
    CborReader request(body);
    const bool password_only = request.flag(Label::kLockedFlag);
    request.finish();
    keymaster.deviceLocked(password_only);
    return kNoBody;
}

}  // namespace

Bytes CborProtocol::handle(uint32_t command, ByteView request) {
    const std::optional<Command> known =
        findCborCommand(command, keymaster_.options().level, legacy_);
    if (!known) {
        refuse(KM_ERROR_UNIMPLEMENTED, "no CBOR command ", hexWord(command),
               " exists at this security level and profile");
    }
    switch (*known) {
        case Command::kConfigure:
            return configure(keymaster_, request);
        case Command::kGenerateKey:
            return generateKey(keymaster_, request);
        case Command::kImportKey:
            return importKey(keymaster_, request);
        case Command::kImportWrappedKey:
            return importWrappedKey(keymaster_, request);
        case Command::kExportKey:
            return exportKey(keymaster_, request);
        case Command::kAttestKey:
            return attestKey(keymaster_, request);
        case Command::kUpgradeKey:
            return upgradeKey(keymaster_, request);
        case Command::kDeleteKey:
            return deleteKey(keymaster_, request);
        case Command::kDeleteAllKeys:
            return deleteAllKeys(keymaster_, request);
        case Command::kDestroyDeviceIds:
            return destroyDeviceIds(keymaster_, request);
        case Command::kBegin:
            return begin(keymaster_, request);
        case Command::kUpdate:
            return update(keymaster_, request);
        case Command::kFinish:
            return finish(keymaster_, request);
        case Command::kAbort:
            return abort(keymaster_, request);
        case Command::kGetSharingParameters:
            return getSharingParameters(keymaster_, request);
        case Command::kComputeSharedHmac:
            return computeSharedHmac(keymaster_, request);
        case Command::kEarlyBootEnded:
            return earlyBootEnded(keymaster_, request);
        case Command::kDeviceLocked:
            return deviceLocked(keymaster_, request);
        default:
            refuse(KM_ERROR_UNIMPLEMENTED, "command ", hexWord(command), " has no CBOR message");
    }
}

}  // namespace lumo::secureapp
