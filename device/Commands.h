// The commands of the secure application: one row each, for both wires.
#pragma once

#include <cstdint>

namespace keymasterdevice {

// In place of an identifier: the command does not exist there.
inline constexpr uint32_t kNone = 0;

// When a command over records brings up the link to the secure processor. Over CBOR every command
// does so before it takes the request buffer.
enum RecordLink {
    kNoLink,        // never
    kLinkFirst,     // before the request is begun
    kLinkByMethod,  // by the method itself, ahead of its argument checks
};

struct Command {
    // The first word of a record; for StrongBox, and for every other security level.
    uint32_t record_id;
    uint32_t strongbox_record_id;
    // What the transport's init() takes for a CBOR request.
    uint32_t cbor_id;
    uint32_t strongbox_cbor_id;
    RecordLink link;
    // The first log line when a record cannot be sent or is refused; null where a command has only
    // CBOR, whose failures are not logged. `send_failure` takes its place, where there is one, once
    // the link is up.
    const char* method;
    const char* send_failure = nullptr;
    // The log line when the transport has no shared buffer.
    const char* no_buffer = "req handle NULL";

    uint32_t recordId(bool strongbox) const { return strongbox ? strongbox_record_id : record_id; }
    uint32_t cborId(bool strongbox) const { return strongbox ? strongbox_cbor_id : cbor_id; }
};

// A CBOR identifier is that of the record plus 0x2000. StrongBox's identifiers in the 0x1xx group
// are the others plus 0x400. Rows that do not follow a rule say so. 0x10A and 0x110 are not used.

// A table, which reads best with every row alike.
// clang-format off
// ---- Keys ----

inline constexpr Command kGenerateKey = {
    0x108, 0x508, 0x2108, 0x2508, kLinkByMethod, "legacy_generate_key", "generate_key_common"};
// Over CBOR nothing is sent: the characteristics are read from the blob.
inline constexpr Command kGetKeyCharacteristics = {
    0x109, 0x509, kNone, kNone, kLinkFirst, "legacy_get_key_characteristics"};
inline constexpr Command kImportKey = {
    0x10B, 0x50B, 0x210B, 0x250B, kLinkFirst, "legacy_import_key"};
inline constexpr Command kExportKey = {
    0x10C, 0x50C, 0x210C, 0x250C, kLinkFirst, "legacy_export_key"};
inline constexpr Command kDeleteKey = {
    0x10D, 0x50D, 0x210D, 0x250D, kLinkFirst, "legacy_delete_key"};
// Kept: over CBOR StrongBox has no identifier of its own, over records it has.
inline constexpr Command kDeleteAllKeys = {
    0x10E, 0x50E, 0x210E, 0x210E, kLinkFirst, "legacy_delete_all_keys"};
inline constexpr Command kUpgradeKey = {
    0x114, 0x514, 0x2114, 0x2514, kLinkFirst, "legacy_upgrade_key", "Upgrade key send cmd failed"};
inline constexpr Command kImportWrappedKey = {
    0x117, 0x517, 0x2117, 0x2517, kLinkFirst, "legacy_import_wrapped_key"};

// ---- Operations ----

inline constexpr Command kBeginOperation = {
    0x10F, 0x50F, 0x210F, 0x250F, kLinkFirst, "legacy_begin_operation", "Begin send cmd failed"};
inline constexpr Command kUpdateOperation = {
    0x111, 0x511, 0x2111, 0x2511, kLinkFirst, "legacy_update_operation", "Update send cmd failed"};
inline constexpr Command kFinishOperation = {
    0x112, 0x512, 0x2112, 0x2512, kLinkFirst, "legacy_finish_operation", "Finish send cmd failed"};
inline constexpr Command kAbortOperation = {
    0x113, 0x513, 0x2113, 0x2513, kLinkFirst, "legacy_abort_operation"};

// ---- Attestation ----

inline constexpr Command kAttestKey = {
    0x115, 0x515, 0x2115, 0x2515, kLinkFirst, "legacy_attest_key", "Attest key send cmd failed"};
// Kept: StrongBox has an identifier of another group.
inline constexpr Command kDestroyDeviceIds = {
    0x20B, 0x704, 0x220B, 0x2704, kLinkFirst, "legacy_destroy_device_ids"};

// ---- Agreement on an HMAC key, and the tokens that it authenticates ----

// Kept: StrongBox has identifiers of another group.
inline constexpr Command kGetHmacSharingParameters = {
    0x20E, 0x706, 0x220E, 0x2706, kNoLink, "legacy_get_hmac_sharing_parameters"};
inline constexpr Command kComputeSharedHmac = {
    0x20F, 0x707, 0x220F, 0x2707, kNoLink, "legacy_compute_shared_hmac"};
// A record on either wire. StrongBox lacks the command, which is KM_ERROR_UNIMPLEMENTED.
inline constexpr Command kVerifyAuthorization = {
    0x118, kNone, kNone, kNone, kNoLink, "LegacyVerifyAuthorization"};

// ---- State of the device: StrongBox has no identifiers of its own ----

inline constexpr Command kConfigure = {
    0x116, 0x116, 0x2116, 0x2116, kNoLink, "legacy_configure"};
// Records on either wire. The second is appended through the builder of the first.
inline constexpr Command kSetRot = {
    0x201, 0x201, kNone, kNone, kNoLink, "LegacySetRot", nullptr, "set_rot_req handle NULL"};
inline constexpr Command kSetBootState = {
    0x208, 0x208, kNone, kNone, kNoLink, "LegacySetRot", nullptr, "set_boot_state_req handle NULL"};
// A record on either wire.
inline constexpr Command kGetDateSupport = {
    0x215, 0x215, kNone, kNone, kNoLink, "legacy_get_date_support"};
// CBOR on either wire. Kept: StrongBox does have identifiers of its own, which follow no rule.
inline constexpr Command kSetEarlyBootEnded = {kNone, kNone, 0x2119, 0x211C, kNoLink, nullptr};
inline constexpr Command kSetDeviceLocked = {kNone, kNone, 0x211A, 0x211D, kNoLink, nullptr};
// clang-format on

}  // namespace keymasterdevice
