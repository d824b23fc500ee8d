// EC keys for secure applications that do not parse PKCS#8 themselves.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>

#include "KeymasterCryptoDevice.h"
#include "LegacyExchange.h"

namespace keymasterdevice {

// Takes the PKCS#8 key apart and appends it as a record of key size and components; the two header
// words at `index` get the record's offset and the offset at which the last component ends. A
// failed conversion is logged and its code returned; KM_ERROR_UNSUPPORTED_EC_CURVE for a curve that
// the record cannot carry; the builder's code where it fails.
[[nodiscard]] keymaster_error_t addEcKey(LegacyExchange& exchange, uint32_t index,
                                         KeymasterCryptoDevice& crypto,
                                         const keymaster_blob_t& pkcs8);

}  // namespace keymasterdevice
