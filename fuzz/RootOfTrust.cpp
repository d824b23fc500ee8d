// Root of trust and boot state on their way from the boot loader's call to an attestation.
//
// Input: a byte of switches, 32 bytes of root of trust, 4 of boot state, then colour, version and
// patch level with 4 bytes each, and a challenge. Beyond not crashing: the call succeeds for every
// colour that there is, a second one is refused, and the certificate of a key made then says what
// was delivered.

#include <algorithm>

#include "AppTransport.h"
#include "EnumBits.h"
#include "Hex.h"
#include "KeymasterHalDevice.h"
#include "Outputs.h"
#include "QuietLog.h"
#include "SampleKeys.h"

namespace {

using keymasterdevice::errorToWord;
using keymasterdevice::KeymasterHalDevice;
using lumo::fuzz::AppTransport;
using lumo::fuzz::exactCopy;
using lumo::fuzz::Input;
using lumo::fuzz::Outputs;
using Bytes = std::vector<uint8_t>;

enum Switch : uint8_t { kLegacy = 1, kLocked = 2, kTwice = 4, kAfterKey = 8 };

constexpr size_t kRootBytes = 32;
constexpr uint32_t kColors = 4;

Bytes importKey(KeymasterHalDevice& device) {
    keymaster_key_param_t params[] = {
        keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_EC),
        keymaster_param_int(KM_TAG_KEY_SIZE, 256),
        keymaster_param_enum(KM_TAG_PURPOSE, KM_PURPOSE_SIGN),
        keymaster_param_enum(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256),
        keymaster_param_bool(KM_TAG_NO_AUTH_REQUIRED),
    };
    const keymaster_key_param_set_t set = {params, std::size(params)};
    static const Bytes pkcs8 = lumo::test::fromHex(lumo::test::kP256);
    const keymaster_blob_t data = {pkcs8.data(), pkcs8.size()};
    Outputs out;
    REQUIRE(device.import_key(&set, KM_KEY_FORMAT_PKCS8, &data, &out.key, &out.characteristics) ==
            KM_ERROR_OK);
    return {out.key.key_material, out.key.key_material + out.key.key_material_size};
}

// RootOfTrust of the key description: key, whether locked, state as the colour says.
Bytes encodedRoot(const Bytes& root, bool locked, uint32_t color) {
    constexpr uint8_t kStates[kColors] = {0, 2, 1, 3};  // green, orange, yellow, red
    const uint8_t lock = locked ? 0xFF : 0x00;
    Bytes bytes;
    bytes.push_back(0x04);
    bytes.push_back(kRootBytes);
    for (const uint8_t byte : root) bytes.push_back(byte);
    for (const uint8_t byte : {uint8_t{0x01}, uint8_t{0x01}, lock}) bytes.push_back(byte);
    for (const uint8_t byte : {uint8_t{0x0A}, uint8_t{0x01}, kStates[color]}) bytes.push_back(byte);
    return bytes;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const lumo::fuzz::QuietLog log;
    Input input(data, size);
    const uint8_t switches = input.byte();
    const bool locked = (switches & kLocked) != 0;
    Bytes root = input.take<Bytes>(kRootBytes);
    root.resize(kRootBytes);
    Bytes state = input.take<Bytes>(4);
    state.resize(4);
    const auto color = static_cast<uint32_t>(input.number(4));
    const auto version = static_cast<uint32_t>(input.number(4));
    const auto patchlevel = static_cast<uint32_t>(input.number(4));
    const Bytes challenge = input.take<Bytes>(128);

    lumo::secureapp::DeviceConfig config;
    config.test_attestation_keys = true;
    AppTransport transport((switches & kLegacy) != 0 ? "legacy-4" : "cbor",
                           KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT, config);
    KeymasterHalDevice device(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
    const auto exact_root = exactCopy(root);
    const auto exact_state = exactCopy(state);
    const auto deliver = [&] {
        return errorToWord(device.SetRot(
            exact_root.get(), nullptr, locked, exact_state.get(),
            keymasterdevice::enumFromBits<_km_boot_state_color_t>(color), version, patchlevel));
    };
    const auto configure = [&] {
        keymaster_key_param_t params[] = {keymaster_param_int(KM_TAG_OS_VERSION, version),
                                          keymaster_param_int(KM_TAG_OS_PATCHLEVEL, patchlevel)};
        const keymaster_key_param_set_t set = {params, std::size(params)};
        return errorToWord(device.configure(&set));
    };

    if ((switches & kAfterKey) != 0) {
        if (configure() != KM_ERROR_OK) return 0;
        importKey(device);
        REQUIRE(deliver() == KM_ERROR_ROOT_OF_TRUST_ALREADY_SET);
        return 0;
    }
    const auto error = deliver();
    REQUIRE((error == KM_ERROR_OK) == (color < kColors));
    if ((switches & kTwice) != 0) REQUIRE(deliver() != KM_ERROR_OK);
    if (error != KM_ERROR_OK || configure() != KM_ERROR_OK) return 0;

    const Bytes blob = importKey(device);
    const keymaster_key_blob_t key = {blob.data(), blob.size()};
    keymaster_key_param_t params[] = {
        keymaster_param_blob(KM_TAG_ATTESTATION_CHALLENGE, challenge.data(), challenge.size()),
        keymaster_param_blob(KM_TAG_ATTESTATION_APPLICATION_ID, challenge.data(), challenge.size()),
    };
    const keymaster_key_param_set_t set = {params, std::size(params)};
    Outputs out;
    const auto attested = errorToWord(device.attest_key(&key, &set, &out.chain));
    // Over records a blob without bytes has no place.
    if (attested != KM_ERROR_OK) {
        REQUIRE(challenge.empty());
        return 0;
    }
    const keymaster_blob_t& leaf = out.chain.entries[0];
    const Bytes wanted = encodedRoot(root, locked, color);
    REQUIRE(std::search(leaf.data, leaf.data + leaf.data_length, wanted.begin(), wanted.end()) !=
            leaf.data + leaf.data_length);
    return 0;
}
