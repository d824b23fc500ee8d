// Attestations made of hostile challenges, application ids, device ids and dates.
//
// Input: a byte of switches, root of trust, challenge, unique id and application id with their two
// bytes of length, a date, then the key's authorizations. Beyond not crashing: libcrypto reads the
// certificate to its last byte and finds its signature good; the key description within it says
// what went in; its lists parse, and hold nothing that the key lacks.

#include "secureapp/attestation/Attestation.h"

#include <openssl/x509.h>

#include <algorithm>

#include "AppParams.h"
#include "Hex.h"
#include "SampleKeys.h"
#include "TestEnvironment.h"
#include "secureapp/attestation/AttestationKeys.h"
#include "secureapp/attestation/AttestationRules.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/Der.h"

namespace {

namespace der = lumo::secureapp::der;
using lumo::fuzz::Input;
using lumo::fuzz::InputParams;
using lumo::secureapp::AttestationKey;
using lumo::secureapp::Bytes;
using lumo::secureapp::ByteView;
using lumo::secureapp::CryptoPtr;
using lumo::secureapp::KeyDescription;
using lumo::secureapp::Param;
using lumo::secureapp::ParamSet;

enum Switch : uint8_t {
    kRsaBatchKey = 1,
    kOldSchema = 2,
    kStrongBox = 4,
    kLocked = 8,
    kHasCreation = 16,
    kHasExpiry = 32,
    kResetSinceRotation = 64,
};

const AttestationKey& batchKey(bool rsa) {
    static const auto make = [](uint32_t algorithm) {
        lumo::test::MemoryState state;
        lumo::secureapp::DeviceConfig config;
        config.test_attestation_keys = true;
        return lumo::secureapp::attestationKey(state, config, KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT,
                                               algorithm);
    };
    static const AttestationKey of_rsa = make(KM_ALGORITHM_RSA);
    static const AttestationKey of_ec = make(KM_ALGORITHM_EC);
    return rsa ? of_rsa : of_ec;
}

bool contains(const Bytes& haystack, const Bytes& needle) {
    return std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end()) !=
           haystack.end();
}

void requireSubset(ByteView list, const ParamSet& of, size_t extra) {
    const ParamSet parsed = lumo::secureapp::decodeAuthorizationList(list);
    size_t foreign = 0;
    for (const Param& param : parsed) {
        if (std::count(of.begin(), of.end(), param) == 0) ++foreign;
    }
    REQUIRE(foreign == extra);
}

void requireSays(const Bytes& encoding, const KeyDescription& description) {
    der::Reader fields = der::Reader(encoding).enter(der::kSequence);
    REQUIRE(fields.nextUnsigned() == description.attestation_version);
    fields.next(der::kEnumerated);
    REQUIRE(fields.nextUnsigned() == description.keymaster_version);
    fields.next(der::kEnumerated);
    REQUIRE(fields.next(der::kOctetString).contents.copy() == description.challenge);
    REQUIRE(fields.next(der::kOctetString).contents.copy() == description.unique_id);
    requireSubset(fields.next(der::kSequence).encoding, description.software, 0);
    requireSubset(fields.next(der::kSequence).encoding, description.hardware, 1);  // root of trust
    fields.expectEnd();
}

// The rules that a request passes before any of this.
void checkRules(uint8_t pick, const ParamSet& params) {
    lumo::test::MemoryState state;
    lumo::secureapp::DeviceConfig config;
    config.device_ids[KM_TAG_ATTESTATION_ID_BRAND] = {'b'};
    try {
        lumo::secureapp::checkAttestationRequest(
            pick % 4, params,
            (pick & 4) != 0 ? KM_SECURITY_LEVEL_STRONGBOX : KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT,
            (pick & 16) != 0 ? 4 : 3);
        REQUIRE(params.bytes(KM_TAG_ATTESTATION_CHALLENGE).size() <= 128);
        REQUIRE(params.bytes(KM_TAG_ATTESTATION_APPLICATION_ID).size() <= 1024);
        if ((pick & 8) != 0) lumo::secureapp::destroyDeviceIds(state);
        const ParamSet ids = lumo::secureapp::matchedDeviceIds(params, config, state);
        REQUIRE(ids.empty() || (pick & 8) == 0);
        for (const Param& id : ids) REQUIRE(id.bytes == Bytes{'b'});
    } catch (const lumo::secureapp::Refusal& refusal) {
        REQUIRE(refusal.code() < KM_ERROR_OK && refusal.code() >= KM_ERROR_UNKNOWN_ERROR);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const uint8_t switches = input.byte();
    const uint8_t rules = input.byte();
    lumo::secureapp::LeafRequest request;
    KeyDescription& description = request.description;
    if ((switches & kOldSchema) != 0) {
        description.attestation_version = 3;
        description.keymaster_version = 4;
    }
    description.security_level = (switches & kStrongBox) != 0 ? 2 : 1;
    description.root_of_trust.verified_boot_key = input.take<Bytes>(input.twoBytes());
    description.root_of_trust.verified_boot_hash = description.root_of_trust.verified_boot_key;
    description.root_of_trust.device_locked = (switches & kLocked) != 0;
    description.root_of_trust.verified_boot_state = input.byte() % 4;
    description.challenge = input.take<Bytes>(input.twoBytes());
    const Bytes application_id = input.take<Bytes>(input.twoBytes());
    const uint64_t date = input.number(8);
    const InputParams params(input);
    const ParamSet all = lumo::fuzz::appParams(params);
    checkRules(rules, all);
    description.unique_id = lumo::secureapp::uniqueId(description.challenge, date, application_id,
                                                      (switches & kResetSinceRotation) != 0);
    REQUIRE(description.unique_id.size() == 16);
    for (size_t i = 0; i < all.size(); ++i) {
        const bool software = i % 3 == 0;
        // The root of trust has its own field.
        if (all[i].tag == KM_TAG_ROOT_OF_TRUST) continue;
        (software ? description.software : description.hardware).add(all[i]);
    }
    if (!description.software.contains(KM_TAG_ATTESTATION_APPLICATION_ID)) {
        description.software.add(
            lumo::secureapp::bytesParam(KM_TAG_ATTESTATION_APPLICATION_ID, application_id));
    }
    request.authorizations = all;
    if ((switches & kHasCreation) != 0) {
        request.authorizations.add(lumo::secureapp::intParam(KM_TAG_CREATION_DATETIME, date));
    }
    if ((switches & kHasExpiry) != 0) {
        request.authorizations.add(lumo::secureapp::intParam(KM_TAG_USAGE_EXPIRE_DATETIME, date));
    }
    request.now = date;
    static const Bytes public_key = lumo::test::fromHex(lumo::test::kP256Public);
    request.public_key = public_key;

    const AttestationKey& batch = batchKey((switches & kRsaBatchKey) != 0);
    const Bytes leaf =
        lumo::secureapp::makeLeafCertificate(request, batch.key.get(), batch.chain[0]);
    const Bytes encoding = lumo::secureapp::encodeKeyDescription(description);
    requireSays(encoding, description);
    REQUIRE(contains(leaf, encoding));
    const uint8_t* cursor = leaf.data();
    X509* certificate = d2i_X509(nullptr, &cursor, static_cast<long>(leaf.size()));
    REQUIRE(certificate != nullptr && cursor == leaf.data() + leaf.size());
    REQUIRE(X509_verify(certificate, batch.key.get()) == 1);
    X509_free(certificate);
    return 0;
}
