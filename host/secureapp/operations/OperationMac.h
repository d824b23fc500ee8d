// HMAC over data that comes in pieces. For the Operation*.cpp files only.
#pragma once

#include <openssl/hmac.h>

#include <memory>

#include "secureapp/base/Types.h"

namespace lumo::secureapp {

class HmacStream {
  public:
    // `digest` is a keymaster_digest_t other than NONE.
    HmacStream(uint32_t digest, ByteView key);

    void add(ByteView data);
    Bytes finish();  // the whole MAC; once only

  private:
    struct Delete {
        void operator()(HMAC_CTX* context) const { HMAC_CTX_free(context); }
    };
    std::unique_ptr<HMAC_CTX, Delete> context_;
};

}  // namespace lumo::secureapp
