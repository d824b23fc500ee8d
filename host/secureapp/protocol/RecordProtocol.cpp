#include "secureapp/protocol/RecordProtocol.h"

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"
#include "secureapp/protocol/Commands.h"

namespace lumo::secureapp {
namespace {

enum CommandWord : size_t { kCommandId };

}  // namespace

Bytes RecordProtocol::handle(const RecordCall& call) {
    const uint32_t id = RecordReader(call.request, 1).word(kCommandId);
    const std::optional<Command> known =
        findRecordCommand(id, keymaster_.options().level, profile_.legacy);
    if (!known) {
        refuse(KM_ERROR_UNIMPLEMENTED, "no record command ", hexWord(id),
               " exists at this security level and profile");
    }
    switch (*known) {
        case Command::kConfigure:
            return records::configure(keymaster_, call);
        case Command::kGenerateKey:
            return records::generateKey(keymaster_, call);
        case Command::kGetCharacteristics:
            return records::getCharacteristics(keymaster_, call);
        case Command::kImportKey:
            return records::importKey(keymaster_, profile_, call);
        case Command::kImportWrappedKey:
            return records::importWrappedKey(keymaster_, call);
        case Command::kExportKey:
            return records::exportKey(keymaster_, profile_, call);
        case Command::kAttestKey:
            return records::attestKey(keymaster_, call);
        case Command::kUpgradeKey:
            return records::upgradeKey(keymaster_, call);
        case Command::kDeleteKey:
            return records::deleteKey(keymaster_, call);
        case Command::kDeleteAllKeys:
            return records::deleteAllKeys(keymaster_, call);
        case Command::kDestroyDeviceIds:
            return records::destroyDeviceIds(keymaster_, call);
        case Command::kBegin:
            return operations_.begin(call);
        case Command::kUpdate:
            return operations_.update(call);
        case Command::kFinish:
            return operations_.finish(call);
        case Command::kAbort:
            return operations_.abort(call);
        case Command::kGetSharingParameters:
            return records::getSharingParameters(keymaster_, call);
        case Command::kComputeSharedHmac:
            return records::computeSharedHmac(keymaster_, call);
        case Command::kVerifyAuthorization:
            return records::verifyAuthorization(keymaster_, call);
        case Command::kSetRootOfTrust:
            return records::setRootOfTrust(keymaster_, call);
        case Command::kSetBootState:
            return records::setBootState(keymaster_, call);
        case Command::kDateSupport:
            return records::dateSupport(profile_, call);
        default:
            refuse(KM_ERROR_UNIMPLEMENTED, "command ", hexWord(id), " has no record");
    }
}

}  // namespace lumo::secureapp
