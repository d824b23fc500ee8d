// Key blobs of the software secure application, sealed and opened, and what the library reads in
// their clear part.
//
// Input: a byte that picks what is done, then the bytes for it. Beyond not crashing: what is sealed
// opens to the same key with the same authorizations; the library finds in the clear part what the
// application reports of them; a blob of another key, a changed one and one whose contents make no
// sense are refused as no key blob.

#include <algorithm>
#include <set>

#include "AppParams.h"
#include "KeyBlobReader.h"
#include "Outputs.h"
#include "QuietLog.h"
#include "TestEnvironment.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/AesGcm.h"
#include "secureapp/keys/KeyBlob.h"

namespace {

using lumo::fuzz::exactCopy;
using lumo::fuzz::Input;
using lumo::fuzz::InputParams;
using lumo::fuzz::Outputs;
using lumo::secureapp::Bytes;
using lumo::secureapp::ByteView;
using lumo::secureapp::OpenedKey;
using lumo::secureapp::Param;
using lumo::secureapp::ParamSet;

constexpr size_t kClearBytes = 352;
constexpr size_t kNonceBytes = 12;
constexpr uint64_t kVersions[] = {
    lumo::secureapp::kBlobVersion3_0, lumo::secureapp::kBlobVersion4_0,
    lumo::secureapp::kBlobVersion4_1, lumo::secureapp::kBlobVersion4_4};

const Bytes kKey(32, 0x77);

void requireSame(const keymaster_key_param_set_t& read, const ParamSet& reported) {
    REQUIRE(read.length == reported.size());
    std::multiset<std::pair<uint32_t, uint64_t>> expected;
    for (const Param& param : reported) {
        expected.emplace(static_cast<uint32_t>(param.tag), param.integer);
    }
    for (size_t i = 0; i < read.length; ++i) {
        const Param param = lumo::fuzz::appParam(read.params[i]);
        const auto found = expected.find({static_cast<uint32_t>(param.tag), param.integer});
        REQUIRE(found != expected.end());
        expected.erase(found);
    }
}

// A tag that does not repeat comes once in a key.
ParamSet withoutRepeats(const ParamSet& params) {
    ParamSet unique;
    for (const Param& param : params) {
        const bool may_repeat = keymaster_tag_type_repeatable(keymaster_tag_get_type(param.tag));
        if (may_repeat || !unique.contains(param.tag)) unique.add(param);
    }
    return unique;
}

void sealAndOpen(Input& input) {
    const uint64_t version = kVersions[input.byte() % std::size(kVersions)];
    const bool early_boot = (input.byte() & 1) != 0;
    const Bytes material = input.take<Bytes>(input.twoBytes());
    const uint8_t changed = input.byte();
    const InputParams params(input);
    lumo::secureapp::BlobContents contents;
    contents.material = material;
    contents.authorizations = withoutRepeats(lumo::fuzz::appParams(params));
    // A clear part that has the field always reports it, and every key has the authorization.
    if (version >= lumo::secureapp::kBlobVersion4_1 &&
        !contents.authorizations.contains(lumo::secureapp::kTagHardwareType)) {
        contents.authorizations.add(
            lumo::secureapp::intParam(lumo::secureapp::kTagHardwareType, 1));
    }
    contents.id = Bytes(lumo::secureapp::kKeyIdBytes, changed);
    lumo::test::CountingRandom random;
    const Bytes blob = lumo::secureapp::sealBlob(contents, version, early_boot, kKey, random);
    REQUIRE(blob.size() > lumo::secureapp::kMaxRefusedBlobBytes);

    const OpenedKey key = lumo::secureapp::openBlob(blob, kKey);
    REQUIRE(key.material.bytes() == material && key.id == contents.id && key.version == version);
    Bytes other = blob;
    other[changed % other.size()] ^= 0x10;
    try {
        lumo::secureapp::openBlob(other, kKey);
        BROKEN("a changed blob is refused");
    } catch (const lumo::secureapp::Refusal& refusal) {
        REQUIRE(refusal.code() == KM_ERROR_INVALID_KEY_BLOB);
    }
    REQUIRE(key.authorizations.size() == contents.authorizations.size());
    Outputs out;
    const auto rule = early_boot ? keymasterdevice::EarlyBootRule::kRead
                                 : keymasterdevice::EarlyBootRule::kIgnore;
    const auto error = keymasterdevice::readCharacteristics({blob.data(), blob.size()}, rule,
                                                            &out.characteristics);
    REQUIRE(error == KM_ERROR_OK);
    requireSame(out.characteristics.hw_enforced, key.hardware());
    requireSame(out.characteristics.sw_enforced, key.software());
}

// Contents of the input, sealed with the right key.
void openHostile(Input& input) {
    Bytes blob = input.take<Bytes>(kClearBytes);
    blob.resize(kClearBytes);
    const Bytes plain = input.take<Bytes>(input.size());
    const Bytes nonce(kNonceBytes, 1);
    const Bytes sealed = lumo::secureapp::aesGcmSeal(kKey, nonce, blob, plain);
    blob.insert(blob.end(), nonce.begin(), nonce.end());
    blob.insert(blob.end(), sealed.begin(), sealed.end());
    const auto exact = exactCopy(blob);
    const OpenedKey key = lumo::secureapp::openBlob({exact.get(), blob.size()}, kKey);
    REQUIRE(key.material.bytes().size() <= plain.size());
    REQUIRE(key.hardware_count + key.software_count <= key.authorizations.size());
    REQUIRE(key.hardware().size() + key.software().size() + key.unreported().size() ==
            key.authorizations.size());
}

void openRaw(Input& input) {
    const Bytes blob = input.take<Bytes>(input.size());
    const auto exact = exactCopy(blob);
    lumo::secureapp::openBlob({exact.get(), blob.size()}, kKey);
    BROKEN("nobody but the application seals");
}

// The keys that a blob is sealed with: every part of the boot state and of the binding counts.
void deriveKeys(Input& input) {
    const Bytes first = input.take<Bytes>(input.twoBytes());
    const Bytes second = input.take<Bytes>(input.size());
    const auto keyOf = [](const Bytes& id, const Bytes& data) {
        return lumo::secureapp::deriveBlobKey(
            kKey, {lumo::secureapp::bytesParam(KM_TAG_APPLICATION_ID, id),
                   lumo::secureapp::bytesParam(KM_TAG_APPLICATION_DATA, data)});
    };
    REQUIRE((keyOf(first, second) == keyOf(second, first)) == (first == second));
    const lumo::secureapp::BlobRoots roots = {first, second, 1, second, false};
    lumo::secureapp::BlobRoots locked = roots;
    locked.device_locked = true;
    REQUIRE(lumo::secureapp::deriveBlobSecret(roots) != lumo::secureapp::deriveBlobSecret(locked));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr void (*kWorks[])(Input&) = {sealAndOpen, openHostile, openRaw, deriveKeys};
    const lumo::fuzz::QuietLog log;
    Input input(data, size);
    const uint8_t pick = input.byte();
    try {
        kWorks[pick % std::size(kWorks)](input);
    } catch (const lumo::secureapp::Refusal& refusal) {
        REQUIRE(refusal.code() == KM_ERROR_INVALID_KEY_BLOB);
        REQUIRE(pick % std::size(kWorks) == 1 || pick % std::size(kWorks) == 2);
    }
    return 0;
}
