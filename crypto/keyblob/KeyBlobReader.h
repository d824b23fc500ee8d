// Reads the clear part of key blobs.
#pragma once

#include <hardware/keymaster_defs.h>

namespace keymasterdevice {

// Whether the blob begins as key blobs do: with the magic and a word of zero.
bool hasKeyBlobHeader(const keymaster_key_blob_t& blob);

// Whether KM_TAG_EARLY_BOOT_ONLY is looked for in blobs of a version that has it.
enum class EarlyBootRule { kRead, kIgnore };

// Builds the hardware- and software-enforced sets from the blob, hardware first. The header is not
// checked. The arrays come from malloc and are the caller's; an empty set has a non-null array
// too. With null `characteristics` nothing is read and the result is KM_ERROR_OK.
//
//   KM_ERROR_INVALID_KEY_BLOB          too short for the fields of its version, or null
//   KM_ERROR_INVALID_ARGUMENT          a set does not have the number of entries that the blob
//                                      declares, or an array has more elements than room; logged
//   KM_ERROR_MEMORY_ALLOCATION_FAILED  logged
//
// An error leaves the set that it concerns, and those after it, as they were: a good
// hardware-enforced set is the caller's even where the software-enforced one is not.
[[nodiscard]] keymaster_error_t readCharacteristics(
    const keymaster_key_blob_t& blob, EarlyBootRule rule,
    keymaster_key_characteristics_t* characteristics);

}  // namespace keymasterdevice
