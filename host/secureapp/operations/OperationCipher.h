// The block ciphers as a stream. For the Operation*.cpp files only.
#pragma once

#include "secureapp/base/Params.h"
#include "secureapp/crypto/CryptoPtr.h"
#include "secureapp/operations/OperationParts.h"

namespace lumo::secureapp {

// AES or triple DES in one direction. No padding: whole blocks are output as they fill up.
class CipherStream {
  public:
    CipherStream(const EVP_CIPHER* cipher, ByteView key, ByteView nonce, bool encrypt);

    size_t blockBytes() const;
    // Appends the output to `out`.
    void add(ByteView input, Bytes& out);
    // GCM only, before any data.
    void addAssociatedData(ByteView data);
    Bytes tag(size_t tag_bytes);  // after encrypting
    bool tagFits(ByteView tag);   // after decrypting

  private:
    bool finishes();

    CryptoPtr<EVP_CIPHER_CTX> context_;
};

std::unique_ptr<Operation> makeGcmOperation(CipherStream stream, bool encrypt, size_t tag_bytes,
                                            const ParamSet& out_params);

}  // namespace lumo::secureapp
