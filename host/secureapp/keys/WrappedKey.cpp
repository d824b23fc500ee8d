#include "secureapp/keys/WrappedKey.h"

#include <hardware/hw_auth_token.h>

#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/Der.h"
#include "secureapp/keys/AuthorizationList.h"

namespace lumo::secureapp {
namespace {

constexpr uint64_t kWrapperVersion = 0;
constexpr size_t kNonceBytes = 12;
constexpr size_t kTagBytes = 16;

void parseDescription(ByteView contents, WrappedKey& wrapped) {
    der::Reader fields(contents);
    const uint64_t format = fields.nextUnsigned();
    if (format > UINT32_MAX) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the key description's key format is ", format);
    }
    wrapped.format = static_cast<uint32_t>(format);
    wrapped.params = decodeAuthorizationList(fields.next(der::kSequence).encoding);
    fields.expectEnd();
}

}  // namespace

WrappedKey parseWrappedKey(ByteView encoding) {
    der::Reader outer(encoding);
    der::Reader fields = outer.enter(der::kSequence);
    outer.expectEnd();

    WrappedKey wrapped;
    const uint64_t version = fields.nextUnsigned();
    if (version != kWrapperVersion) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the wrapped key is of version ", version, ", known is ",
               kWrapperVersion);
    }
    wrapped.encrypted_transport_key = fields.next(der::kOctetString).contents;
    wrapped.nonce = fields.next(der::kOctetString).contents;
    const der::Item description = fields.next(der::kSequence);
    wrapped.key_description = description.encoding;
    wrapped.sealed = fields.next(der::kOctetString).contents.copy();
    const ByteView tag = fields.next(der::kOctetString).contents;
    fields.expectEnd();
    if (wrapped.nonce.size() != kNonceBytes || tag.size() != kTagBytes) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the wrapped key has a nonce of ", wrapped.nonce.size(),
               " and a tag of ", tag.size(), " bytes in place of ", kNonceBytes, " and ",
               kTagBytes);
    }
    append(wrapped.sealed, tag);
    parseDescription(description.contents, wrapped);
    return wrapped;
}

ParamSet resolveSecureIds(const ParamSet& params, uint64_t password_sid, uint64_t biometric_sid) {
    if (!params.contains(KM_TAG_USER_SECURE_ID)) return params;
    uint64_t authenticators = 0;
    for (const uint64_t bits : params.integers(KM_TAG_USER_SECURE_ID)) authenticators |= bits;

    ParamSet resolved = params;
    resolved.removeAll(KM_TAG_USER_SECURE_ID);
    if ((authenticators & HW_AUTH_PASSWORD) != 0) {
        resolved.add(intParam(KM_TAG_USER_SECURE_ID, password_sid));
    }
    if ((authenticators & HW_AUTH_FINGERPRINT) != 0) {
        resolved.add(intParam(KM_TAG_USER_SECURE_ID, biometric_sid));
    }
    // Without any id the key would need no authentication at all.
    if (!resolved.contains(KM_TAG_USER_SECURE_ID)) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the wrapped key's USER_SECURE_ID is ", authenticators,
               ", which names neither password (1) nor fingerprint (2)");
    }
    return resolved;
}

}  // namespace lumo::secureapp
