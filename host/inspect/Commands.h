// The catalogue of commands, as a reader of recorded messages needs it.
#pragma once

#include <cstdint>
#include <string>

namespace lumo::inspect {

enum class Wire { kCbor, kRecord };

enum class CommandId {
    kGenerateKey,
    kGetKeyCharacteristics,
    kImportKey,
    kImportWrappedKey,
    kExportKey,
    kAttestKey,
    kUpgradeKey,
    kDeleteKey,
    kDeleteAllKeys,
    kDestroyAttestationIds,
    kBegin,
    kUpdate,
    kFinish,
    kAbort,
    kGetHmacSharingParameters,
    kComputeSharedHmac,
    kVerifyAuthorization,
    kConfigure,
    kGetDateSupport,
    kSetRootOfTrust,
    kSetBootState,
    kEarlyBootEnded,
    kDeviceLocked,
};

// Identifiers on one wire; 0 where the command does not exist there.
struct CommandNumbers {
    uint32_t environment;
    uint32_t strongbox;
};

struct CommandInfo {
    CommandId id;
    const char* name;  // as the platform's interface names the call, where it has one
    CommandNumbers record;
    CommandNumbers cbor;

    const CommandNumbers& on(Wire wire) const { return wire == Wire::kCbor ? cbor : record; }
};

// The command that has this number on the wire, at either security level; null where none has.
const CommandInfo* findCommand(Wire wire, uint32_t number);
// By its name, or by a number of either wire in C's notation ("0x2108"); null where none has it.
const CommandInfo* findCommand(const std::string& name_or_number);
// All names, separated by ", ": for messages.
std::string commandNames();

// "generateKey (0x2108)", "unknown command (0x9)".
std::string describeCommand(Wire wire, uint32_t number);

const char* nameOf(Wire wire);  // "cbor", "record"

}  // namespace lumo::inspect
