// The public-key conversions.
//
// Input: a byte that picks the conversion, then what is to be converted. Beyond not crashing: a DER
// signature that is taken apart is put together again to the very same bytes, and the other way
// round but for leading zeros; the public half of a private key that is taken apart encodes to a
// public key that libcrypto reads and encodes to the very same bytes.

#include <openssl/x509.h>

#include <vector>

#include "CryptoPtr.h"
#include "KeymasterCryptoDevice.h"
#include "LogCapture.h"
#include "Memory.h"
#include "Outputs.h"

namespace {

using lumo::fuzz::exactCopy;
using lumo::fuzz::Input;
using lumo::fuzz::Outputs;
using namespace keymasterdevice;  // NOLINT(google-build-using-namespace): the records' names
using Bytes = std::vector<uint8_t>;

// OpenSSL reads lengths in long form as well, and does not write them.
#ifdef OPENSSL_IS_BORINGSSL
constexpr bool kReadsDerAlone = true;
#else
constexpr bool kReadsDerAlone = false;
#endif

// The bytes of a block from malloc, which is released.
Bytes taken(uint8_t* block, uint32_t size) {
    const MallocedBytes owner(block);
    return block == nullptr ? Bytes() : Bytes(block, block + size);
}

Bytes withoutLeadingZeros(Bytes number) {
    size_t zeros = 0;
    while (zeros < number.size() && number[zeros] == 0) ++zeros;
    number.erase(number.begin(), number.begin() + static_cast<std::ptrdiff_t>(zeros));
    return number;
}

uint32_t sizeOf(const Bytes& bytes) {
    return static_cast<uint32_t>(bytes.size());
}

// Empty where libcrypto does not read the public key.
Bytes encodedAgain(const keymaster_blob_t& der) {
    const uint8_t* cursor = der.data;
    const CryptoPtr<EVP_PKEY> key(d2i_PUBKEY(nullptr, &cursor, static_cast<long>(der.data_length)));
    const int size = key ? i2d_PUBKEY(key.get(), nullptr) : 0;
    Bytes bytes(size > 0 ? static_cast<size_t>(size) : 0);
    uint8_t* end = bytes.data();
    if (!bytes.empty()) REQUIRE(i2d_PUBKEY(key.get(), &end) == size);
    return bytes;
}

void privateKey(Input& input) {
    const Bytes der = input.take<Bytes>(input.size());
    const auto exact = exactCopy(der);
    const keymaster_blob_t blob = {exact.get(), der.size()};
    _keymaster_ec_import_internal_t parts{};
    KeymasterCryptoDevice device;
    if (device.pkcs8_to_internal(KM_ALGORITHM_EC, &blob, &parts) != KM_ERROR_OK) {
        REQUIRE(parts.priv_key == nullptr && parts.pubkey_x == nullptr &&
                parts.pubkey_y == nullptr);
        return;
    }
    const Bytes scalar = taken(parts.priv_key, parts.priv_key_len);
    const Bytes x = taken(parts.pubkey_x, parts.pubkey_x_len);
    const Bytes y = taken(parts.pubkey_y, parts.pubkey_y_len);
    for (const Bytes& number : {scalar, x, y}) REQUIRE(number == withoutLeadingZeros(number));
    if (parts.key_size == 0) return;  // a curve without a public form
    REQUIRE(scalar.size() <= (parts.key_size + 7) / 8);

    _keymaster_export_internal_t key{};
    key.algorithm = KM_ALGORITHM_EC;
    key.pubkey_x = x.data();
    key.pubkey_x_len = sizeOf(x);
    key.pubkey_y = y.data();
    key.pubkey_y_len = sizeOf(y);
    Outputs out;
    REQUIRE(device.internal_to_x509(&key, &out.data) == KM_ERROR_OK);
    REQUIRE(encodedAgain(out.data) == Bytes(out.data.data, out.data.data + out.data.data_length));
}

void signature(Input& input) {
    const Bytes der = input.take<Bytes>(input.size());
    const auto exact = exactCopy(der);
    const keymaster_blob_t blob = {exact.get(), der.size()};
    _keymaster_ec_sig_internal_t parts{};
    KeymasterCryptoDevice device;
    if (device.ecsig_to_internal(&blob, &parts) != KM_ERROR_OK) {
        REQUIRE(parts.r == nullptr && parts.s == nullptr);
        return;
    }
    Bytes r = taken(parts.r, parts.r_len);
    Bytes s = taken(parts.s, parts.s_len);
    _keymaster_ec_sig_internal_t again = {r.data(), sizeOf(r), s.data(), sizeOf(s)};
    Outputs out;
    REQUIRE(device.internal_to_ecsig(&again, &out.data) == KM_ERROR_OK);
    const Bytes again_der(out.data.data, out.data.data + out.data.data_length);
    REQUIRE(again_der == der || (!kReadsDerAlone && again_der.size() < der.size()));
}

void numbers(Input& input) {
    Bytes r = input.take<Bytes>(input.byte());
    Bytes s = input.take<Bytes>(input.size());
    _keymaster_ec_sig_internal_t in = {r.data(), sizeOf(r), s.data(), sizeOf(s)};
    Outputs out;
    KeymasterCryptoDevice device;
    if (device.internal_to_ecsig(&in, &out.data) != KM_ERROR_OK) {
        REQUIRE(r.empty() || s.empty());
        return;
    }
    const bool zero = withoutLeadingZeros(r).empty() || withoutLeadingZeros(s).empty();
    _keymaster_ec_sig_internal_t parts{};
    REQUIRE((device.ecsig_to_internal(&out.data, &parts) == KM_ERROR_OK) == !zero);
    REQUIRE(taken(parts.r, parts.r_len) == (zero ? Bytes() : withoutLeadingZeros(r)));
    REQUIRE(taken(parts.s, parts.s_len) == (zero ? Bytes() : withoutLeadingZeros(s)));
}

// Of a public key as a secure application returns it.
void publicKey(Input& input) {
    const bool rsa = (input.byte() & 1) != 0;
    const Bytes first = input.take<Bytes>(input.twoBytes());
    const Bytes second = input.take<Bytes>(input.size());
    const auto a = exactCopy(first);
    const auto b = exactCopy(second);
    _keymaster_export_internal_t key{};
    key.algorithm = rsa ? KM_ALGORITHM_RSA : KM_ALGORITHM_EC;
    (rsa ? key.modulus : key.pubkey_x) = a.get();
    (rsa ? key.modulus_len : key.pubkey_x_len) = sizeOf(first);
    (rsa ? key.exponent : key.pubkey_y) = b.get();
    (rsa ? key.exponent_len : key.pubkey_y_len) = sizeOf(second);
    Outputs out;
    if (KeymasterCryptoDevice().internal_to_x509(&key, &out.data) != KM_ERROR_OK) return;
    const Bytes again = encodedAgain(out.data);
    // An RSA key is not checked before it is encoded; libcrypto reads valid ones only.
    if (rsa && again.empty()) return;
    REQUIRE(again == Bytes(out.data.data, out.data.data + out.data.data_length));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr void (*kConversions[])(Input&) = {privateKey, signature, numbers, publicKey};
    const lumo::test::LogCapture log;
    Input input(data, size);
    kConversions[input.byte() % 4](input);
    return 0;
}
