// EC keys and signatures in both directions between the library's conversions and the secure
// application's, which share no code.
//
// Input: a byte that picks the direction, one that says which allocation of the library fails (0:
// none), then what is converted. Beyond not crashing and not leaking: a key that the library takes
// apart the application puts together to the same key; both accept the same signatures and agree on
// their numbers; without memory the library's outputs stay untouched.

#include <openssl/x509.h>

#include "Allocations.h"
#include "EnumBits.h"
#include "KeymasterCryptoDevice.h"
#include "Memory.h"
#include "Outputs.h"
#include "QuietLog.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/PrivateKey.h"
#include "secureapp/keys/KeyMaterial.h"
#include "secureapp/protocol/EcConversions.h"

namespace {

using lumo::fuzz::exactCopy;
using lumo::fuzz::FailingAllocation;
using lumo::fuzz::Input;
using lumo::fuzz::Outputs;
using lumo::secureapp::Bytes;
using lumo::secureapp::ByteView;
using lumo::secureapp::Refusal;
using namespace keymasterdevice;  // NOLINT(google-build-using-namespace): the records' names

constexpr size_t kWidestBytes = 66;

Bytes padded(const uint8_t* number, uint32_t size, size_t width) {
    Bytes bytes(width - std::min<size_t>(size, width), 0);
    bytes.insert(bytes.end(), number, number + size);
    return bytes;
}

uint32_t sizeOf(const Bytes& bytes) {
    return static_cast<uint32_t>(bytes.size());
}

struct Parts {
    _keymaster_ec_import_internal_t key{};
    ~Parts() {
        std::free(key.priv_key);
        std::free(key.pubkey_x);
        std::free(key.pubkey_y);
    }
};

// A private key in PKCS#8.
void privateKey(Input& input, uint32_t failing) {
    const auto algorithm = static_cast<keymaster_algorithm_t>(input.byte() % 4);
    const Bytes der = input.take<Bytes>(input.size());
    const auto exact = exactCopy(der);
    const keymaster_blob_t blob = {exact.get(), der.size()};
    Parts parts;
    ErrorWord error = KM_ERROR_OK;
    {
        const FailingAllocation failed(failing);
        error =
            errorToWord(KeymasterCryptoDevice().pkcs8_to_internal(algorithm, &blob, &parts.key));
    }
    if (error != KM_ERROR_OK) {
        REQUIRE(parts.key.priv_key == nullptr && parts.key.pubkey_x == nullptr);
        return;
    }
    if (parts.key.key_size == 0) return;  // a curve that no keymaster knows
    const size_t width = lumo::secureapp::ecWidth(parts.key.key_size);
    // What the record of an import has no room for is refused by whoever makes it.
    if (parts.key.priv_key_len > width) return;
    const Bytes scalar = padded(parts.key.priv_key, parts.key.priv_key_len, width);
    const Bytes x = padded(parts.key.pubkey_x, parts.key.pubkey_x_len, width);
    const Bytes y = padded(parts.key.pubkey_y, parts.key.pubkey_y_len, width);
    Bytes again;
    try {
        again = lumo::secureapp::ecPrivateKey({parts.key.key_size, scalar, x, y});
    } catch (const Refusal&) {
        return;  // its halves do not belong together, which only the application checks
    }
    const auto facts = lumo::secureapp::materialFacts(KM_ALGORITHM_EC, again);
    REQUIRE(facts.bits == parts.key.key_size);
    const auto key = lumo::secureapp::publicPartsOf(KM_ALGORITHM_EC, again);
    REQUIRE(padded(key.x.data(), sizeOf(key.x), width) == x);
    REQUIRE(padded(key.y.data(), sizeOf(key.y), width) == y);

    // And its public half as the library encodes it.
    _keymaster_export_internal_t exported{};
    exported.algorithm = KM_ALGORITHM_EC;
    exported.pubkey_x = key.x.data();
    exported.pubkey_x_len = sizeOf(key.x);
    exported.pubkey_y = key.y.data();
    exported.pubkey_y_len = sizeOf(key.y);
    Outputs out;
    {
        const FailingAllocation failed(failing);
        error = errorToWord(KeymasterCryptoDevice().internal_to_x509(&exported, &out.data));
    }
    if (error != KM_ERROR_OK) {
        REQUIRE(failing != 0 && out.data.data == nullptr);
        return;
    }
    const Bytes encoded(out.data.data, out.data.data + out.data.data_length);
    REQUIRE(encoded == lumo::secureapp::publicKeyOf(again));
}

// The parts of a private key as an old client sends them.
void keyParts(Input& input, uint32_t /*failing*/) {
    const auto bits = static_cast<uint32_t>(input.twoBytes());
    const size_t width = std::min(lumo::secureapp::ecWidth(bits), kWidestBytes);
    const Bytes scalar = input.take<Bytes>(width);
    const Bytes x = input.take<Bytes>(width);
    const Bytes y = input.take<Bytes>(input.size());
    try {
        const Bytes pkcs8 = lumo::secureapp::ecPrivateKey({bits, scalar, x, y});
        REQUIRE(lumo::secureapp::parsePrivateKey(pkcs8) != nullptr);
        REQUIRE(lumo::secureapp::materialFacts(KM_ALGORITHM_EC, pkcs8).bits == bits);
    } catch (const Refusal& refusal) {
        REQUIRE(refusal.code() == KM_ERROR_INVALID_ARGUMENT ||
                refusal.code() == KM_ERROR_UNSUPPORTED_KEY_SIZE);
    }
}

// A signature in DER.
void signature(Input& input, uint32_t failing) {
    const Bytes der = input.take<Bytes>(input.size());
    const auto exact = exactCopy(der);
    const keymaster_blob_t blob = {exact.get(), der.size()};
    _keymaster_ec_sig_internal_t parts{};
    ErrorWord error = KM_ERROR_OK;
    {
        const FailingAllocation failed(failing);
        error = errorToWord(KeymasterCryptoDevice().ecsig_to_internal(&blob, &parts));
    }
    Bytes raw;
    try {
        raw = lumo::secureapp::ecRawSignature(der, kWidestBytes);
    } catch (const Refusal&) {
        raw.clear();
    }
    if (error != KM_ERROR_OK) {
        REQUIRE(parts.r == nullptr && parts.s == nullptr);
        return;
    }
    const MallocedBytes r_owner(parts.r);
    const MallocedBytes s_owner(parts.s);
    if (parts.r_len > kWidestBytes || parts.s_len > kWidestBytes) {
        REQUIRE(raw.empty());
        return;
    }
    Bytes both = padded(parts.r, parts.r_len, kWidestBytes);
    const Bytes s = padded(parts.s, parts.s_len, kWidestBytes);
    both.insert(both.end(), s.begin(), s.end());
    REQUIRE(raw == both);
}

// Two numbers.
void numbers(Input& input, uint32_t failing) {
    Bytes r = input.take<Bytes>(input.byte());
    Bytes s = input.string<Bytes>(3);
    // One libcrypto writes no longer signature than this, the other no longer number.
    constexpr size_t kMostHeadBytes = 16;
    const bool too_long = r.size() + s.size() + kMostHeadBytes > UINT16_MAX;
    Bytes der;
    try {
        der = lumo::secureapp::ecDerSignature(r, s);
    } catch (const Refusal&) {
        REQUIRE(too_long);
    }
    _keymaster_ec_sig_internal_t in = {r.data(), sizeOf(r), s.data(), sizeOf(s)};
    Outputs out;
    ErrorWord error = KM_ERROR_OK;
    {
        const FailingAllocation failed(failing);
        error = errorToWord(KeymasterCryptoDevice().internal_to_ecsig(&in, &out.data));
    }
    if (error != KM_ERROR_OK) {
        REQUIRE(out.data.data == nullptr && (failing != 0 || r.empty() || s.empty() || too_long));
        return;
    }
    REQUIRE(der.empty() || der == Bytes(out.data.data, out.data.data + out.data.data_length));
}

// A public RSA key as its numbers, or one of an algorithm that has none.
void rsaPublicKey(Input& input, uint32_t failing) {
    _keymaster_export_internal_t key{};
    const bool rsa = input.byte() % 2 == 0;
    key.algorithm = rsa ? uint32_t{KM_ALGORITHM_RSA} : input.byte();
    const Bytes modulus = input.take<Bytes>(input.twoBytes());
    const Bytes exponent = input.take<Bytes>(input.size());
    key.modulus = modulus.data();
    key.modulus_len = sizeOf(modulus);
    key.exponent = exponent.data();
    key.exponent_len = sizeOf(exponent);
    Outputs out;
    const FailingAllocation failed(failing);
    const auto error = errorToWord(KeymasterCryptoDevice().internal_to_x509(&key, &out.data));
    REQUIRE((out.data.data != nullptr) == (error == KM_ERROR_OK));
}

// Nothing where something must be.
void nulls(Input& input, uint32_t /*failing*/) {
    KeymasterCryptoDevice device;
    const uint8_t pick = input.byte();
    uint8_t byte = 1;
    const keymaster_blob_t blob = {&byte, 1};
    const keymaster_blob_t no_bytes = {nullptr, 1};
    keymaster_blob_t out = {nullptr, 0};
    _keymaster_ec_import_internal_t key{};
    _keymaster_export_internal_t exported{};
    _keymaster_ec_sig_internal_t parts = {&byte, 1, &byte, 1};
    if ((pick & 1) != 0) parts.r = nullptr;
    if ((pick & 2) != 0) parts.r_len = 0;
    if ((pick & 4) != 0) parts.s = nullptr;
    if ((pick & 8) != 0) parts.s_len = 0;
    const bool bad = (pick & 15) != 0;
    const bool no_out = (pick & 16) != 0;
    if (bad || no_out) {
        REQUIRE(device.internal_to_ecsig(&parts, no_out ? nullptr : &out) ==
                KM_ERROR_UNEXPECTED_NULL_POINTER);
    }
    REQUIRE(device.internal_to_ecsig(nullptr, &out) == KM_ERROR_UNEXPECTED_NULL_POINTER);
    REQUIRE(device.internal_to_x509(nullptr, &out) == KM_ERROR_UNEXPECTED_NULL_POINTER);
    REQUIRE(device.internal_to_x509(&exported, nullptr) == KM_ERROR_UNEXPECTED_NULL_POINTER);
    REQUIRE(device.ecsig_to_internal(nullptr, &parts) == KM_ERROR_UNEXPECTED_NULL_POINTER);
    REQUIRE(device.ecsig_to_internal(&no_bytes, &parts) == KM_ERROR_UNEXPECTED_NULL_POINTER);
    REQUIRE(device.ecsig_to_internal(&blob, nullptr) == KM_ERROR_UNEXPECTED_NULL_POINTER);
    REQUIRE(device.pkcs8_to_internal(KM_ALGORITHM_EC, &no_bytes, &key) ==
            KM_ERROR_UNEXPECTED_NULL_POINTER);
    REQUIRE(device.pkcs8_to_internal(KM_ALGORITHM_EC, &blob, nullptr) ==
            KM_ERROR_UNEXPECTED_NULL_POINTER);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr void (*kDirections[])(Input&, uint32_t) = {privateKey, keyParts,     signature,
                                                         numbers,    rsaPublicKey, nulls};
    const lumo::fuzz::QuietLog log;
    Input input(data, size);
    const uint8_t pick = input.byte();
    const uint32_t failing = input.byte();
    kDirections[pick % std::size(kDirections)](input, failing);
    return 0;
}
