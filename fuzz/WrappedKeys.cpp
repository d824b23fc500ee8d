// Keys wrapped for import: the wrapper, the authorizations in it, and the whole import.
//
// Input: a byte that picks what is done, then the bytes for it. Beyond not crashing: a wrapper that
// parses is put together again to the very same bytes; authorizations that parse are within the
// rules of their tags, and what an attestation repeats of them parses to the same; a key that this
// target wraps is imported or refused with a published error, and never with a changed bit.

#include <algorithm>

#include "AppTransport.h"
#include "Hex.h"
#include "Property.h"
#include "WrappedKeyVector.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/AesGcm.h"
#include "secureapp/crypto/Der.h"
#include "secureapp/keys/AuthorizationList.h"
#include "secureapp/keys/WrappedKey.h"

namespace {

namespace der = lumo::secureapp::der;
using lumo::fuzz::exactCopy;
using lumo::fuzz::Input;
using lumo::secureapp::Bytes;
using lumo::secureapp::ByteView;
using lumo::secureapp::Param;
using lumo::secureapp::ParamSet;
using lumo::secureapp::Refusal;
using lumo::test::fromHex;

constexpr size_t kTagBytes = 16;
constexpr size_t kNonceBytes = 12;

void parse(Input& input) {
    const Bytes bytes = input.take<Bytes>(input.size());
    const auto exact = exactCopy(bytes);
    const auto wrapped = lumo::secureapp::parseWrappedKey({exact.get(), bytes.size()});
    REQUIRE(wrapped.sealed.size() >= kTagBytes && wrapped.nonce.size() == kNonceBytes);
    const ByteView sealed(wrapped.sealed);
    const size_t secret = sealed.size() - kTagBytes;
    const Bytes again = der::sequence({
        der::integer(0),
        der::octetString(wrapped.encrypted_transport_key),
        der::octetString(wrapped.nonce),
        wrapped.key_description.copy(),
        der::octetString(sealed.sub(0, secret)),
        der::octetString(sealed.sub(secret)),
    });
    REQUIRE(again == bytes);
}

bool isWide(keymaster_tag_t tag) {
    const keymaster_tag_type_t type = keymaster_tag_get_type(tag);
    return type == KM_ULONG || type == KM_ULONG_REP || type == KM_DATE;
}

void parseList(Input& input) {
    const uint64_t password = input.number(2);
    const uint64_t biometric = input.number(2);
    const Bytes bytes = input.take<Bytes>(input.size());
    const auto exact = exactCopy(bytes);
    const ParamSet params = lumo::secureapp::decodeAuthorizationList({exact.get(), bytes.size()});
    for (const Param& param : params) {
        REQUIRE(isWide(param.tag) || param.integer <= UINT32_MAX);
    }
    for (const uint32_t version : {3U, 4U}) {
        const Bytes attested = lumo::secureapp::encodeAttestedList(params, nullptr, version);
        ParamSet repeated;
        try {
            repeated = lumo::secureapp::decodeAuthorizationList(attested);
        } catch (const Refusal&) {
            BROKEN("an attested list parses");
        }
        for (const Param& param : repeated) {
            REQUIRE(std::count(params.begin(), params.end(), param) != 0);
        }
    }
    const ParamSet resolved = lumo::secureapp::resolveSecureIds(params, password, biometric);
    for (const uint64_t id : resolved.integers(KM_TAG_USER_SECURE_ID)) {
        REQUIRE(id == password || id == biometric);
    }
}

// The wrapping key of the stored vector, imported once, and what it opens.
struct Wrapping {
    Wrapping()
        : material(fromHex(lumo::test::kWrappingKey)),
          encrypted_transport_key(
              lumo::secureapp::parseWrappedKey(vector = fromHex(lumo::test::kWrappedKey))
                  .encrypted_transport_key.copy()) {
        for (unsigned i = 0; i < 32; ++i) {
            masking_key.push_back(static_cast<uint8_t>(0xE0 + i));
            transport_key.push_back(static_cast<uint8_t>(0x40 + i));
        }
    }

    Bytes vector;
    Bytes material;
    Bytes encrypted_transport_key;
    Bytes masking_key;
    Bytes transport_key;
};

// Input: two bytes with the length of the description, of which the first four say the format; its
// authorization list; the key material.
void import(Input& input) {
    static const Wrapping wrapping;
    const uint8_t changed_bit = input.byte();
    const uint8_t spoiled = input.byte();
    const auto format = static_cast<uint32_t>(input.byte());
    const Bytes list = input.take<Bytes>(input.twoBytes());
    const Bytes material = input.take<Bytes>(input.size());
    const Bytes description = der::sequence({der::integer(format), list});
    const Bytes nonce(kNonceBytes, 0x10);
    const Bytes sealed =
        lumo::secureapp::aesGcmSeal(wrapping.transport_key, nonce, description, material);
    const size_t secret = sealed.size() - kTagBytes;
    Bytes wrapped = der::sequence({
        der::integer(0),
        der::octetString(wrapping.encrypted_transport_key),
        der::octetString(nonce),
        description,
        der::octetString(ByteView(sealed).sub(0, secret)),
        der::octetString(ByteView(sealed).sub(secret)),
    });

    lumo::fuzz::AppTransport transport("cbor", KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT, {});
    lumo::secureapp::Keymaster& keymaster = transport.app.keymaster();
    using lumo::secureapp::intParam;
    keymaster.configure(
        {intParam(KM_TAG_OS_VERSION, 110000), intParam(KM_TAG_OS_PATCHLEVEL, 202012)});
    // What the wrapping key lacks, one thing at most.
    ParamSet wrapping_params = {
        intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA),
        intParam(KM_TAG_KEY_SIZE, 2048),
        intParam(KM_TAG_RSA_PUBLIC_EXPONENT, 65537),
        intParam(KM_TAG_NO_AUTH_REQUIRED, 1),
    };
    if (spoiled != 1) wrapping_params.add(intParam(KM_TAG_PURPOSE, KM_PURPOSE_WRAP));
    if (spoiled != 2) wrapping_params.add(intParam(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256));
    if (spoiled != 3) wrapping_params.add(intParam(KM_TAG_PADDING, KM_PAD_RSA_OAEP));
    const Bytes blob = keymaster.importKey(wrapping_params, KM_KEY_FORMAT_PKCS8, wrapping.material);
    if ((changed_bit & 1) != 0) {
        wrapped[wrapped.size() - 1 - (changed_bit >> 1) % wrapped.size()] ^= 1;
    }
    const auto exact = exactCopy(wrapped);
    const Bytes imported = keymaster.importWrappedKey({exact.get(), wrapped.size()}, blob,
                                                      wrapping.masking_key, {}, 7, 8);
    REQUIRE((changed_bit & 1) == 0 && (spoiled == 0 || spoiled > 3));
    const auto opened = keymaster.characteristics(imported, {});
    REQUIRE(opened.material.bytes() == material);
    REQUIRE(opened.authorizations.integer(KM_TAG_ORIGIN) == uint64_t{4});
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr void (*kWorks[])(Input&) = {parse, parseList, import};
    Input input(data, size);
    const uint8_t pick = input.byte();
    try {
        kWorks[pick % std::size(kWorks)](input);
    } catch (const Refusal& refusal) {
        REQUIRE(refusal.code() < KM_ERROR_OK && refusal.code() >= KM_ERROR_UNKNOWN_ERROR);
        const bool reads_only = pick % std::size(kWorks) < 2;
        REQUIRE(!reads_only || refusal.code() == KM_ERROR_INVALID_ARGUMENT);
    }
    return 0;
}
