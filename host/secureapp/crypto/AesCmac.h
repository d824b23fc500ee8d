// AES-CMAC (RFC 4493).
#pragma once

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

// With a 16- or 32-byte key.
Bytes aesCmac(ByteView key, ByteView data);

}  // namespace lumo::secureapp
