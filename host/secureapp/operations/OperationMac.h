// HMAC over data that comes in pieces. For the Operation*.cpp files only.
#pragma once

#include "secureapp/base/Bytes.h"
#include "secureapp/crypto/CryptoPtr.h"

namespace lumo::secureapp {

class HmacStream {
  public:
    // `digest` is a keymaster_digest_t other than NONE.
    HmacStream(uint32_t digest, ByteView key);

    void add(ByteView data);
    Bytes finish();  // the whole MAC; once only

  private:
    CryptoPtr<HMAC_CTX> context_;
};

}  // namespace lumo::secureapp
