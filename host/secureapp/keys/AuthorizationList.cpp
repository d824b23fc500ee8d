#include "secureapp/keys/AuthorizationList.h"

#include <algorithm>
#include <iterator>

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"
#include "secureapp/crypto/Der.h"

namespace lumo::secureapp {
namespace {

constexpr uint32_t kNever = UINT32_MAX;
constexpr uint32_t kFirstVersion = 0;
constexpr uint32_t kVersion4 = 4;

// By tag number. `attested_from`: the attestation version whose schema is the first with the field.
constexpr struct Field {
    keymaster_tag_t tag;
    uint32_t attested_from;
} kFields[] = {
    {KM_TAG_PURPOSE, kFirstVersion},
    {KM_TAG_ALGORITHM, kFirstVersion},
    {KM_TAG_KEY_SIZE, kFirstVersion},
    {KM_TAG_BLOCK_MODE, kNever},
    {KM_TAG_DIGEST, kFirstVersion},
    {KM_TAG_PADDING, kFirstVersion},
    {KM_TAG_CALLER_NONCE, kNever},
    {KM_TAG_MIN_MAC_LENGTH, kNever},
    {KM_TAG_EC_CURVE, kFirstVersion},
    {KM_TAG_RSA_PUBLIC_EXPONENT, kFirstVersion},
    {KM_TAG_INCLUDE_UNIQUE_ID, kNever},
    {KM_TAG_BLOB_USAGE_REQUIREMENTS, kNever},
    {KM_TAG_BOOTLOADER_ONLY, kNever},
    {KM_TAG_ROLLBACK_RESISTANCE, kFirstVersion},
    {kTagHardwareType, kNever},
    {KM_TAG_EARLY_BOOT_ONLY, kVersion4},
    {KM_TAG_ACTIVE_DATETIME, kFirstVersion},
    {KM_TAG_ORIGINATION_EXPIRE_DATETIME, kFirstVersion},
    {KM_TAG_USAGE_EXPIRE_DATETIME, kFirstVersion},
    {KM_TAG_MIN_SECONDS_BETWEEN_OPS, kNever},
    {KM_TAG_MAX_USES_PER_BOOT, kNever},
    {KM_TAG_USER_ID, kNever},
    {KM_TAG_USER_SECURE_ID, kNever},
    {KM_TAG_NO_AUTH_REQUIRED, kFirstVersion},
    {KM_TAG_USER_AUTH_TYPE, kFirstVersion},
    {KM_TAG_AUTH_TIMEOUT, kFirstVersion},
    {KM_TAG_ALLOW_WHILE_ON_BODY, kFirstVersion},
    {kTagTrustedUserPresenceRequired, kFirstVersion},
    {KM_TAG_TRUSTED_CONFIRMATION_REQUIRED, kFirstVersion},
    {KM_TAG_UNLOCKED_DEVICE_REQUIRED, kFirstVersion},
    {KM_TAG_APPLICATION_ID, kNever},
    {KM_TAG_APPLICATION_DATA, kNever},
    {KM_TAG_CREATION_DATETIME, kFirstVersion},
    {KM_TAG_ORIGIN, kFirstVersion},
    {KM_TAG_ROOT_OF_TRUST, kFirstVersion},
    {KM_TAG_OS_VERSION, kFirstVersion},
    {KM_TAG_OS_PATCHLEVEL, kFirstVersion},
    {KM_TAG_ATTESTATION_APPLICATION_ID, kFirstVersion},
    {KM_TAG_ATTESTATION_ID_BRAND, kFirstVersion},
    {KM_TAG_ATTESTATION_ID_DEVICE, kFirstVersion},
    {KM_TAG_ATTESTATION_ID_PRODUCT, kFirstVersion},
    {KM_TAG_ATTESTATION_ID_SERIAL, kFirstVersion},
    {KM_TAG_ATTESTATION_ID_IMEI, kFirstVersion},
    {KM_TAG_ATTESTATION_ID_MEID, kFirstVersion},
    {KM_TAG_ATTESTATION_ID_MANUFACTURER, kFirstVersion},
    {KM_TAG_ATTESTATION_ID_MODEL, kFirstVersion},
    {kTagVendorPatchlevel, kFirstVersion},
    {kTagBootPatchlevel, kFirstVersion},
    {KM_TAG_DEVICE_UNIQUE_ATTESTATION, kVersion4},
    {KM_TAG_IDENTITY_CREDENTIAL_KEY, kNever},
    {kTagStorageKey, kNever},
};

Bytes encodeRootOfTrust(const RootOfTrust& root) {
    return der::sequence({
        der::octetString(root.verified_boot_key),
        der::boolean(root.device_locked),
        der::integer(root.verified_boot_state, der::kEnumerated),
        der::octetString(root.verified_boot_hash),
    });
}

// The value inside the context tag; the tag stands in `params`.
Bytes encodeValue(const ParamSet& params, keymaster_tag_t tag) {
    const keymaster_tag_type_t type = keymaster_tag_get_type(tag);
    if (type == KM_BOOL) return der::item(der::kNull, {});
    if (type == KM_BYTES) return der::octetString(params.bytes(tag));
    if (!keymaster_tag_type_repeatable(type)) return der::integer(*params.integer(tag));
    std::vector<Bytes> values;
    for (const uint64_t value : params.integers(tag)) values.push_back(der::integer(value));
    return der::setOf(values);
}

uint64_t decodeInteger(der::Reader& reader, keymaster_tag_type_t type) {
    const uint64_t value = reader.nextUnsigned();
    const bool is_wide = type == KM_ULONG || type == KM_ULONG_REP || type == KM_DATE;
    if (!is_wide && value > UINT32_MAX) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the wrapped authorization's value ", value,
               " has more than 32 bits");
    }
    return value;
}

void decodeSet(der::Reader& reader, keymaster_tag_t tag, ParamSet& params) {
    der::Reader elements = reader.enter(der::kSet);
    uint64_t last = 0;
    while (!elements.atEnd()) {
        const uint64_t value = decodeInteger(elements, keymaster_tag_get_type(tag));
        if (value < last) {
            refuse(KM_ERROR_INVALID_ARGUMENT, "the values of ", tagName(tag),
                   " are not in DER's order: ", value, " follows ", last);
        }
        params.add(intParam(tag, value));
        last = value;
    }
}

void decodeRepeatable(der::Reader& reader, keymaster_tag_t tag, ParamSet& params) {
    // USER_SECURE_ID comes as an INTEGER or as a SET OF them; both are in use.
    der::Reader ahead = reader;
    if (tag == KM_TAG_USER_SECURE_ID && ahead.next().tag == der::kInteger) {
        params.add(intParam(tag, reader.nextUnsigned()));
    } else {
        decodeSet(reader, tag, params);
    }
}

void decodeValue(der::Reader& reader, keymaster_tag_t tag, ParamSet& params) {
    const keymaster_tag_type_t type = keymaster_tag_get_type(tag);
    if (tag == KM_TAG_ROOT_OF_TRUST) {
        params.add(bytesParam(tag, reader.next(der::kSequence).encoding));
    } else if (type == KM_BOOL) {
        reader.enter(der::kNull).expectEnd();
        params.add(boolParam(tag));
    } else if (type == KM_BYTES) {
        params.add(bytesParam(tag, reader.next(der::kOctetString).contents));
    } else if (keymaster_tag_type_repeatable(type)) {
        decodeRepeatable(reader, tag, params);
    } else {
        params.add(intParam(tag, decodeInteger(reader, type)));
    }
    reader.expectEnd();
}

keymaster_tag_t tagOf(der::Tag element) {
    const auto* const field =
        std::find_if(std::begin(kFields), std::end(kFields), [element](const Field& candidate) {
            return der::context(keymaster_tag_mask_type(candidate.tag)) == element;
        });
    if (field == std::end(kFields)) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "no authorization has the number ", element.number);
    }
    return field->tag;
}

}  // namespace

Bytes encodeAttestedList(const ParamSet& params, const RootOfTrust* root_of_trust,
                         uint32_t version) {
    Bytes contents;
    for (const Field& field : kFields) {
        const bool is_root = field.tag == KM_TAG_ROOT_OF_TRUST;
        const bool present = is_root ? root_of_trust != nullptr : params.contains(field.tag);
        if (!present || version < field.attested_from) continue;
        const Bytes value =
            is_root ? encodeRootOfTrust(*root_of_trust) : encodeValue(params, field.tag);
        const Bytes element = der::item(der::context(keymaster_tag_mask_type(field.tag)), value);
        append(contents, element);
    }
    return der::item(der::kSequence, contents);
}

ParamSet decodeAuthorizationList(ByteView encoding) {
    der::Reader outer(encoding);
    der::Reader elements = outer.enter(der::kSequence);
    outer.expectEnd();
    ParamSet params;
    uint32_t last_number = 0;
    while (!elements.atEnd()) {
        const der::Item element = elements.next();
        if (element.tag.number <= last_number) {
            refuse(KM_ERROR_INVALID_ARGUMENT, "authorization ", element.tag.number, " follows ",
                   last_number, ", against DER's order");
        }
        last_number = element.tag.number;
        der::Reader value(element.contents);
        decodeValue(value, tagOf(element.tag), params);
    }
    return params;
}

}  // namespace lumo::secureapp
