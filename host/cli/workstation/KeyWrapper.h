// Makes wrapped keys, as whoever sends a key to a device does.
//
//   SecureKeyWrapper ::= SEQUENCE {
//     version INTEGER (0),
//     encryptedTransportKey OCTET STRING,   RSA-OAEP of the transport key XOR the masking key
//     initializationVector OCTET STRING,    12 bytes
//     keyDescription KeyDescription,        authenticated with the key
//     encryptedKey OCTET STRING,            AES-256-GCM
//     tag OCTET STRING }                    16 bytes
//   KeyDescription ::= SEQUENCE { keyFormat INTEGER, keyParams AuthorizationList }
#pragma once

#include <string>
#include <vector>

#include "Client.h"

namespace lumo::cli {

struct KeyToWrap {
    km::V4_0::KeyFormat format{};
    std::vector<KeyParameter> parameters;
    Bytes material;
    Bytes masking_key;   // 32 bytes
    Bytes wrapping_key;  // its public key, a SubjectPublicKeyInfo in PEM or DER
};

// What may be made wrong in a wrapped key, by the name of its field.
struct WrongField {
    const char* name;
    const char* how;
    const char* answer;  // of a keymaster that looks
};
const std::vector<WrongField>& wrongFields();

// Throws Failure where the bytes are no private key that keymasters import in this form.
void requirePrivateKey(const Bytes& pkcs8);

// The DER of the wrapped key; with the field of the name `wrong`, unless that is empty, as
// wrongFields() tells. Throws Failure.
Bytes wrapKey(const KeyToWrap& key, const std::string& wrong);

}  // namespace lumo::cli
