// Parameter sets in the records of the fixed-layout protocol.
#pragma once

#include <KeymasterBuffer.h>
#include <hardware/keymaster_defs.h>

#include <cstdint>

#include "EnumBits.h"

namespace keymasterdevice {

// Appends `count` parameters as 12-byte records {tag, value, value}, little-endian, with the bytes
// of their blobs packed behind the array. The builder's code where it fails; KM_ERROR_INVALID_TAG
// for a tag of type KM_INVALID, KM_ERROR_UNEXPECTED_NULL_POINTER for a blob that has a length and
// no bytes, both leaving the indirect region open.
[[nodiscard]] ErrorWord serializeLegacyParams(KeymasterBuffer& builder,
                                              const keymaster_key_param_t* params, uint32_t count);

}  // namespace keymasterdevice
