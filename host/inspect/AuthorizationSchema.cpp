#include "inspect/AuthorizationSchema.h"

#include <algorithm>
#include <iterator>

namespace lumo::inspect {

namespace {

constexpr uint32_t kEnum = 0x10000000U;
constexpr uint32_t kEnumRep = 0x20000000U;
constexpr uint32_t kUint = 0x30000000U;
constexpr uint32_t kUlong = 0x50000000U;
constexpr uint32_t kDate = 0x60000000U;
constexpr uint32_t kBool = 0x70000000U;
constexpr uint32_t kBytes = 0x90000000U;
constexpr uint32_t kUlongRep = 0xA0000000U;

constexpr uint32_t kOld = 3;  // in every version that is read here
constexpr uint32_t kNew = 4;

constexpr SchemaField field(uint32_t type, uint32_t number, const char* name, Content content,
                            Place place, uint32_t since = kOld) {
    return {number, name, content, place, since, type | number};
}

constexpr SchemaField kFields[] = {
    field(kEnumRep, 1, "purpose", Content::integers, Place::hardware),
    field(kEnum, 2, "algorithm", Content::integer, Place::hardware),
    field(kUint, 3, "keySize", Content::integer, Place::hardware),
    field(kEnumRep, 4, "blockMode", Content::integers, Place::none),
    field(kEnumRep, 5, "digest", Content::integers, Place::hardware),
    field(kEnumRep, 6, "padding", Content::integers, Place::hardware),
    field(kBool, 7, "callerNonce", Content::flag, Place::none),
    field(kUint, 8, "minMacLength", Content::integer, Place::none),
    field(kEnum, 10, "ecCurve", Content::integer, Place::hardware),
    field(kUlong, 200, "rsaPublicExponent", Content::longInteger, Place::hardware),
    field(kBool, 202, "includeUniqueId", Content::flag, Place::none),
    field(kEnum, 301, "blobUsageRequirements", Content::integer, Place::none),
    field(kBool, 302, "bootloaderOnly", Content::flag, Place::none),
    field(kBool, 303, "rollbackResistance", Content::flag, Place::hardware),
    field(kEnum, 304, "hardwareType", Content::integer, Place::none),
    field(kBool, 305, "earlyBootOnly", Content::flag, Place::hardware, kNew),
    field(kDate, 400, "activeDateTime", Content::longInteger, Place::either),
    field(kDate, 401, "originationExpireDateTime", Content::longInteger, Place::either),
    field(kDate, 402, "usageExpireDateTime", Content::longInteger, Place::either),
    field(kUint, 403, "minSecondsBetweenOps", Content::integer, Place::none),
    field(kUint, 404, "maxUsesPerBoot", Content::integer, Place::none),
    field(kUint, 501, "userId", Content::integer, Place::none),
    field(kUlongRep, 502, "userSecureId", Content::integerOrSet, Place::none),
    field(kBool, 503, "noAuthRequired", Content::flag, Place::hardware),
    field(kEnum, 504, "userAuthType", Content::integer, Place::hardware),
    field(kUint, 505, "authTimeout", Content::integer, Place::hardware),
    field(kBool, 506, "allowWhileOnBody", Content::flag, Place::software),
    field(kBool, 507, "trustedUserPresenceRequired", Content::flag, Place::hardware),
    field(kBool, 508, "trustedConfirmationRequired", Content::flag, Place::hardware),
    field(kBool, 509, "unlockedDeviceRequired", Content::flag, Place::either),
    field(kDate, 701, "creationDateTime", Content::longInteger, Place::software),
    field(kEnum, 702, "origin", Content::integer, Place::hardware),
    field(kBytes, 704, "rootOfTrust", Content::rootOfTrust, Place::hardware),
    field(kUint, 705, "osVersion", Content::integer, Place::hardware),
    field(kUint, 706, "osPatchLevel", Content::integer, Place::hardware),
    field(kBytes, 709, "attestationApplicationId", Content::bytes, Place::software),
    field(kBytes, 710, "attestationIdBrand", Content::bytes, Place::hardware),
    field(kBytes, 711, "attestationIdDevice", Content::bytes, Place::hardware),
    field(kBytes, 712, "attestationIdProduct", Content::bytes, Place::hardware),
    field(kBytes, 713, "attestationIdSerial", Content::bytes, Place::hardware),
    field(kBytes, 714, "attestationIdImei", Content::bytes, Place::hardware),
    field(kBytes, 715, "attestationIdMeid", Content::bytes, Place::hardware),
    field(kBytes, 716, "attestationIdManufacturer", Content::bytes, Place::hardware),
    field(kBytes, 717, "attestationIdModel", Content::bytes, Place::hardware),
    field(kUint, 718, "vendorPatchLevel", Content::integer, Place::hardware),
    field(kUint, 719, "bootPatchLevel", Content::integer, Place::hardware),
    field(kBool, 720, "deviceUniqueAttestation", Content::flag, Place::hardware, kNew),
    field(kBool, 721, "identityCredentialKey", Content::flag, Place::none, kNew),
    field(kBool, 722, "storageKey", Content::flag, Place::none, kNew),
};

}  // namespace

const SchemaField* schemaField(uint32_t number) {
    const auto* const found = std::lower_bound(
        std::begin(kFields), std::end(kFields), number,
        [](const SchemaField& each, uint32_t wanted) { return each.number < wanted; });
    return found != std::end(kFields) && found->number == number ? found : nullptr;
}

}  // namespace lumo::inspect
