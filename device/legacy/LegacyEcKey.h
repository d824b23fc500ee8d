// EC keys for secure applications that do not parse PKCS#8 themselves.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>

#include "KeymasterCryptoDevice.h"
#include "LegacyExchange.h"

namespace keymasterdevice {

// Takes the PKCS#8 key apart and appends it as a record of key size and components; the two header
// words at `index` get the record's offset and the offset at which the last component ends. A
// conversion that fails is logged and fails the exchange with its code, a curve that the record
// cannot carry with KM_ERROR_UNSUPPORTED_EC_CURVE. The copy of the private key is wiped.
void addEcKey(LegacyExchange& exchange, uint32_t index, KeymasterCryptoDevice& crypto,
              const keymaster_blob_t& pkcs8);

}  // namespace keymasterdevice
