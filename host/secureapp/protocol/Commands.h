// The commands of the secure application and their identifiers on both protocols.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>
#include <optional>

namespace lumo::secureapp {

enum class Command {
    kGenerateKey,
    kGetCharacteristics,
    kImportKey,
    kExportKey,
    kDeleteKey,
    kDeleteAllKeys,
    kBegin,
    kUpdate,
    kFinish,
    kAbort,
    kUpgradeKey,
    kAttestKey,
    kConfigure,
    kImportWrappedKey,
    kVerifyAuthorization,
    kEarlyBootEnded,
    kDeviceLocked,
    kSetRootOfTrust,
    kSetBootState,
    kDestroyDeviceIds,
    kGetSharingParameters,
    kComputeSharedHmac,
    kDateSupport,
};

// The command that `id` means at this level in a CBOR message or in a fixed-layout record. Nothing
// for an id that is unknown, belongs to the other level, or to a protocol that the secure
// application does not speak: with `legacy` set, CBOR carries only the commands that have no
// record; without, records carry only those that have no CBOR message.
std::optional<Command> findCborCommand(uint32_t id, keymaster_security_level_t level, bool legacy);
std::optional<Command> findRecordCommand(uint32_t id, keymaster_security_level_t level,
                                         bool legacy);

}  // namespace lumo::secureapp
