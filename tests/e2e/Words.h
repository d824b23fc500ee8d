// Keymaster parameters as words: "aes size:128 encrypt cbc pkcs7 nonce:0x00112233". A value that
// belongs to an enumeration stands for itself; others follow the name of their tag, bytes as text
// or, behind 0x, as hexadecimal digits. A tag without a name is "tag-NUMBER".
#pragma once

#include <android/hardware/keymaster/4.1/types.h>

#include <string>

namespace lumo::test {

using ::android::hardware::hidl_vec;
using ::android::hardware::keymaster::V4_0::KeyParameter;

hidl_vec<KeyParameter> params(const std::string& words);
// Sorted, so that two lists of the same parameters give the same words.
std::string words(const hidl_vec<KeyParameter>& params);

}  // namespace lumo::test
