#include "inspect/Commands.h"

#include <cstdio>
#include <cstdlib>

namespace lumo::inspect {
namespace {

constexpr uint32_t kNone = 0;

// A table, which reads best with every row alike.
// clang-format off
constexpr CommandInfo kCommands[] = {
    {CommandId::kGenerateKey, "generateKey", {0x108, 0x508}, {0x2108, 0x2508}},
    {CommandId::kGetKeyCharacteristics, "getKeyCharacteristics", {0x109, 0x509}, {kNone, kNone}},
    {CommandId::kImportKey, "importKey", {0x10B, 0x50B}, {0x210B, 0x250B}},
    {CommandId::kExportKey, "exportKey", {0x10C, 0x50C}, {0x210C, 0x250C}},
    {CommandId::kDeleteKey, "deleteKey", {0x10D, 0x50D}, {0x210D, 0x250D}},
    {CommandId::kDeleteAllKeys, "deleteAllKeys", {0x10E, 0x50E}, {0x210E, 0x210E}},
    {CommandId::kBegin, "begin", {0x10F, 0x50F}, {0x210F, 0x250F}},
    {CommandId::kUpdate, "update", {0x111, 0x511}, {0x2111, 0x2511}},
    {CommandId::kFinish, "finish", {0x112, 0x512}, {0x2112, 0x2512}},
    {CommandId::kAbort, "abort", {0x113, 0x513}, {0x2113, 0x2513}},
    {CommandId::kUpgradeKey, "upgradeKey", {0x114, 0x514}, {0x2114, 0x2514}},
    {CommandId::kAttestKey, "attestKey", {0x115, 0x515}, {0x2115, 0x2515}},
    {CommandId::kConfigure, "configure", {0x116, 0x116}, {0x2116, 0x2116}},
    {CommandId::kImportWrappedKey, "importWrappedKey", {0x117, 0x517}, {0x2117, 0x2517}},
    {CommandId::kVerifyAuthorization, "verifyAuthorization", {0x118, kNone}, {kNone, kNone}},
    {CommandId::kEarlyBootEnded, "earlyBootEnded", {kNone, kNone}, {0x2119, 0x211C}},
    {CommandId::kDeviceLocked, "deviceLocked", {kNone, kNone}, {0x211A, 0x211D}},
    {CommandId::kSetRootOfTrust, "setRootOfTrust", {0x201, 0x201}, {kNone, kNone}},
    {CommandId::kSetBootState, "setBootState", {0x208, 0x208}, {kNone, kNone}},
    {CommandId::kDestroyAttestationIds, "destroyAttestationIds", {0x20B, 0x704}, {0x220B, 0x2704}},
    {CommandId::kGetHmacSharingParameters, "getHmacSharingParameters",
     {0x20E, 0x706}, {0x220E, 0x2706}},
    {CommandId::kComputeSharedHmac, "computeSharedHmac", {0x20F, 0x707}, {0x220F, 0x2707}},
    {CommandId::kGetDateSupport, "getDateSupport", {0x215, 0x215}, {kNone, kNone}},
};
// clang-format on

}  // namespace

const CommandInfo* findCommand(Wire wire, uint32_t number) {
    if (number == kNone) return nullptr;
    for (const CommandInfo& command : kCommands) {
        const CommandNumbers& numbers = command.on(wire);
        if (numbers.environment == number || numbers.strongbox == number) return &command;
    }
    return nullptr;
}

const CommandInfo* findCommand(const std::string& name_or_number) {
    for (const CommandInfo& command : kCommands) {
        if (name_or_number == command.name) return &command;
    }
    char* end = nullptr;
    const unsigned long number = std::strtoul(name_or_number.c_str(), &end, 0);
    if (name_or_number.empty() || *end != 0 || number > UINT32_MAX) return nullptr;
    const CommandInfo* record = findCommand(Wire::kRecord, static_cast<uint32_t>(number));
    return record != nullptr ? record : findCommand(Wire::kCbor, static_cast<uint32_t>(number));
}

std::string commandNames() {
    std::string names;
    for (const CommandInfo& command : kCommands) {
        names += (names.empty() ? "" : ", ") + std::string(command.name);
    }
    return names;
}

std::string describeCommand(Wire wire, uint32_t number) {
    const CommandInfo* command = findCommand(wire, number);
    char text[16];
    std::snprintf(text, sizeof(text), " (0x%x)", number);
    return (command == nullptr ? "unknown command" : command->name) + std::string(text);
}

const char* nameOf(Wire wire) {
    return wire == Wire::kCbor ? "cbor" : "record";
}

}  // namespace lumo::inspect
