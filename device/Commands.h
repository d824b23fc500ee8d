// The commands of the fixed-layout protocol: identifiers and what a failure says in the log.
#pragma once

#include <cstdint>

namespace keymasterdevice {

struct LegacyCommand {
    uint32_t id;
    uint32_t strongbox_id;     // the same where StrongBox has no identifier of its own
    const char* method;        // first log line when the link does not come up
    const char* send_failure;  // first log line when the send or the secure application fails
    const char* no_buffer = "req handle NULL";
};

// 0x10A and 0x110 are not used.
constexpr LegacyCommand kGenerateKey = {0x108, 0x508, "legacy_generate_key", "generate_key_common"};
constexpr LegacyCommand kGetKeyCharacteristics = {0x109, 0x509, "legacy_get_key_characteristics",
                                                  "legacy_get_key_characteristics"};
constexpr LegacyCommand kImportKey = {0x10B, 0x50B, "legacy_import_key", "legacy_import_key"};
constexpr LegacyCommand kExportKey = {0x10C, 0x50C, "legacy_export_key", "legacy_export_key"};
constexpr LegacyCommand kDeleteKey = {0x10D, 0x50D, "legacy_delete_key", "legacy_delete_key"};
constexpr LegacyCommand kDeleteAllKeys = {0x10E, 0x50E, "legacy_delete_all_keys",
                                          "legacy_delete_all_keys"};
constexpr LegacyCommand kBegin = {0x10F, 0x50F, "legacy_begin_operation", "Begin send cmd failed"};
constexpr LegacyCommand kUpdate = {0x111, 0x511, "legacy_update_operation",
                                   "Update send cmd failed"};
constexpr LegacyCommand kFinish = {0x112, 0x512, "legacy_finish_operation",
                                   "Finish send cmd failed"};
constexpr LegacyCommand kAbort = {0x113, 0x513, "legacy_abort_operation", "legacy_abort_operation"};
constexpr LegacyCommand kUpgradeKey = {0x114, 0x514, "legacy_upgrade_key",
                                       "Upgrade key send cmd failed"};
constexpr LegacyCommand kAttestKey = {0x115, 0x515, "legacy_attest_key",
                                      "Attest key send cmd failed"};
constexpr LegacyCommand kConfigure = {0x116, 0x116, "legacy_configure", "legacy_configure"};
constexpr LegacyCommand kImportWrappedKey = {0x117, 0x517, "legacy_import_wrapped_key",
                                             "legacy_import_wrapped_key"};
// StrongBox has no such command; the method refuses before anything is sent.
constexpr LegacyCommand kVerifyAuthorization = {0x118, 0x118, "LegacyVerifyAuthorization",
                                                "LegacyVerifyAuthorization"};
constexpr LegacyCommand kSetRot = {0x201, 0x201, "LegacySetRot", "LegacySetRot",
                                   "set_rot_req handle NULL"};
constexpr LegacyCommand kSetBootState = {0x208, 0x208, "LegacySetRot", "LegacySetRot",
                                         "set_boot_state_req handle NULL"};
// Kept: unlike those of the 0x1xx group, the StrongBox identifiers of the next three commands are
// not the plain ones plus 0x400.
constexpr LegacyCommand kDestroyDeviceIds = {0x20B, 0x704, "legacy_destroy_device_ids",
                                             "legacy_destroy_device_ids"};
constexpr LegacyCommand kGetHmacSharingParameters = {
    0x20E, 0x706, "legacy_get_hmac_sharing_parameters", "legacy_get_hmac_sharing_parameters"};
constexpr LegacyCommand kComputeSharedHmac = {0x20F, 0x707, "legacy_compute_shared_hmac",
                                              "legacy_compute_shared_hmac"};
constexpr LegacyCommand kGetDateSupport = {0x215, 0x215, "legacy_get_date_support",
                                           "legacy_get_date_support"};

}  // namespace keymasterdevice
