#include "secureapp/protocol/Commands.h"

namespace lumo::secureapp {
namespace {

constexpr uint32_t kNone = 0;

// Identifiers: the trusted environment's, StrongBox's.
struct Ids {
    uint32_t environment;
    uint32_t strongbox;
};

struct CommandRow {
    Command command;
    Ids record;
    Ids cbor;
};

constexpr CommandRow kCommands[] = {
    {Command::kGenerateKey, {0x108, 0x508}, {0x2108, 0x2508}},
    {Command::kGetCharacteristics, {0x109, 0x509}, {kNone, kNone}},
    {Command::kImportKey, {0x10B, 0x50B}, {0x210B, 0x250B}},
    {Command::kExportKey, {0x10C, 0x50C}, {0x210C, 0x250C}},
    {Command::kDeleteKey, {0x10D, 0x50D}, {0x210D, 0x250D}},
    {Command::kDeleteAllKeys, {0x10E, 0x50E}, {0x210E, 0x210E}},
    {Command::kBegin, {0x10F, 0x50F}, {0x210F, 0x250F}},
    {Command::kUpdate, {0x111, 0x511}, {0x2111, 0x2511}},
    {Command::kFinish, {0x112, 0x512}, {0x2112, 0x2512}},
    {Command::kAbort, {0x113, 0x513}, {0x2113, 0x2513}},
    {Command::kUpgradeKey, {0x114, 0x514}, {0x2114, 0x2514}},
    {Command::kAttestKey, {0x115, 0x515}, {0x2115, 0x2515}},
    {Command::kConfigure, {0x116, 0x116}, {0x2116, 0x2116}},
    {Command::kImportWrappedKey, {0x117, 0x517}, {0x2117, 0x2517}},
    {Command::kVerifyAuthorization, {0x118, kNone}, {kNone, kNone}},
    {Command::kEarlyBootEnded, {kNone, kNone}, {0x2119, 0x211C}},
    {Command::kDeviceLocked, {kNone, kNone}, {0x211A, 0x211D}},
    {Command::kSetRootOfTrust, {0x201, 0x201}, {kNone, kNone}},
    {Command::kSetBootState, {0x208, 0x208}, {kNone, kNone}},
    {Command::kDestroyDeviceIds, {0x20B, 0x704}, {0x220B, 0x2704}},
    {Command::kGetSharingParameters, {0x20E, 0x706}, {0x220E, 0x2706}},
    {Command::kComputeSharedHmac, {0x20F, 0x707}, {0x220F, 0x2707}},
    {Command::kDateSupport, {0x215, 0x215}, {kNone, kNone}},
};

uint32_t idOf(const Ids& ids, keymaster_security_level_t level) {
    return level == KM_SECURITY_LEVEL_STRONGBOX ? ids.strongbox : ids.environment;
}

bool exists(const Ids& ids) {
    return ids.environment != kNone || ids.strongbox != kNone;
}

}  // namespace

std::optional<Command> findCborCommand(uint32_t id, keymaster_security_level_t level, bool legacy) {
    if (id == kNone) return std::nullopt;
    for (const CommandRow& row : kCommands) {
        if (idOf(row.cbor, level) != id) continue;
        if (legacy && exists(row.record)) return std::nullopt;
        return row.command;
    }
    return std::nullopt;
}

std::optional<Command> findRecordCommand(uint32_t id, keymaster_security_level_t level,
                                         bool legacy) {
    if (id == kNone) return std::nullopt;
    for (const CommandRow& row : kCommands) {
        if (idOf(row.record, level) != id) continue;
        // There is no CBOR message for the characteristics, but a CBOR client never asks for them:
        // it does not send that record either.
        const bool cbor_client_sends =
            !exists(row.cbor) && row.command != Command::kGetCharacteristics;
        if (!legacy && !cbor_client_sends) return std::nullopt;
        return row.command;
    }
    return std::nullopt;
}

}  // namespace lumo::secureapp
