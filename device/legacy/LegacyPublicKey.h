// Public keys from secure applications that do not encode them themselves.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>

#include "KeymasterCryptoDevice.h"
#include "LegacyExchange.h"

namespace keymasterdevice {

// Encodes the public key of `algorithm` (keymaster_algorithm_t: RSA or EC) whose parts `record`, a
// record of the response of `exchange`, names, as a DER SubjectPublicKeyInfo in memory from malloc.
// KM_ERROR_UNSUPPORTED_ALGORITHM, logged; KM_ERROR_UNKNOWN_ERROR where a part lies outside the
// shared buffer; else the code of the conversion. `export_data` is written only on success.
[[nodiscard]] keymaster_error_t exportPublicKey(const LegacyExchange& exchange, uint32_t algorithm,
                                                LegacyResponse record,
                                                KeymasterCryptoDevice& crypto,
                                                keymaster_blob_t* export_data);

}  // namespace keymasterdevice
