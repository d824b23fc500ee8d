#include "Memory.h"

#include <openssl/crypto.h>

namespace keymasterdevice {

void wipe(void* memory, size_t size) {
    if (size != 0) OPENSSL_cleanse(memory, size);
}

}  // namespace keymasterdevice
