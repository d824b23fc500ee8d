// The exact types of the library's interface. Callers were compiled against them, so a changed
// argument or return type has to fail here. Compiled in every build and never run; a check also
// compiles it with the include directories that the platform's build exports, and with no others.

#include <CborHelpers.h>
#include <Keymaster41Device.h>
#include <KeymasterCryptoDevice.h>
#include <KeymasterHalDevice.h>

#include <type_traits>

namespace {

using ::keymaster::V4_0::Keymaster4Device;
using ::keymaster::V4_1::Keymaster41Device;
using namespace ::keymasterdevice;

using Error = keymaster_error_t;
using Bytes = std::vector<uint8_t>;
using Params = keymaster_key_param_set_t;
using KeyBlob = keymaster_key_blob_t;
using Blob = keymaster_blob_t;
using Characteristics = keymaster_key_characteristics_t;
using Builder = std::unique_ptr<KeymasterBuffer>;

#define TYPE(name, ...) static_assert(std::is_same_v<decltype(&name), __VA_ARGS__>, #name)
// A member function of `Class`; one that stands for its legacy twin too.
#define METHOD(name, result, ...) TYPE(Class::name, result (Class::*)(__VA_ARGS__))
#define TWINS(name, twin, ...)        \
    METHOD(name, Error, __VA_ARGS__); \
    METHOD(twin, Error, __VA_ARGS__)

// ---- The device core ----

struct DeviceCore {
    using Class = KeymasterHalDevice;
    static_assert(std::is_constructible_v<Class, keymaster_security_level_t>);
    static_assert(!std::is_convertible_v<keymaster_security_level_t, Class>);
    static_assert(std::has_virtual_destructor_v<Class> && !std::is_copy_constructible_v<Class>);

    METHOD(get_keymaster_version, uint32_t);
    TWINS(configure, legacy_configure, const Params*);
    TWINS(generate_key, legacy_generate_key, const Params*, KeyBlob*, Characteristics*);
    METHOD(generate_key_common, Error, const Params*, KeyBlob*);
    TWINS(get_key_characteristics, legacy_get_key_characteristics, const KeyBlob*, const Blob*,
          const Blob*, Characteristics*);
    TWINS(import_key, legacy_import_key, const Params*, keymaster_key_format_t, const Blob*,
          KeyBlob*, Characteristics*);
    TWINS(export_key, legacy_export_key, keymaster_key_format_t, const KeyBlob*, const Blob*,
          const Blob*, Blob*);
    TWINS(attest_key, legacy_attest_key, const KeyBlob*, const Params*, keymaster_cert_chain_t*);
    TWINS(upgrade_key, legacy_upgrade_key, const KeyBlob*, const Params*, KeyBlob*);
    TWINS(begin_operation, legacy_begin_operation, keymaster_purpose_t, const KeyBlob*,
          const Params*, Params*, uint64_t*);
    TWINS(update_operation, legacy_update_operation, uint64_t, const Params*, const Blob*,
          uint32_t*, Params*, Blob*);
    TWINS(finish_operation, legacy_finish_operation, uint64_t, const Params*, const Blob*,
          const Blob*, Params*, Blob*);
    TWINS(abort_operation, legacy_abort_operation, uint64_t);
    TWINS(delete_key, legacy_delete_key, const KeyBlob*);
    TWINS(delete_all_keys, legacy_delete_all_keys);
    TWINS(destroy_device_ids, legacy_destroy_device_ids);
    TWINS(import_wrapped_key, legacy_import_wrapped_key, const Params*, uint64_t, uint64_t, Bytes,
          Bytes, Bytes, KeyBlob*, Characteristics*);
    TWINS(get_hmac_sharing_parameters, legacy_get_hmac_sharing_parameters, hmac_sharing_params_t*);
    TWINS(compute_shared_hmac, legacy_compute_shared_hmac, std::vector<hmac_sharing_params_t>,
          Bytes&);
    METHOD(set_early_boot_ended, Error);
    METHOD(set_device_locked, Error, bool);
    TWINS(get_date_support, legacy_get_date_support, bool*);
    TWINS(verifyAuthorization, LegacyVerifyAuthorization, uint64_t, verification_token_t*);
    TWINS(SetRot, LegacySetRot, uint8_t*, uint8_t*, bool, uint8_t*, _km_boot_state_color_t,
          uint32_t, uint32_t);
    TYPE(Class::TagToString, const char* (*)(keymaster_tag_t));
    METHOD(PrintParams, void, keymaster_key_param_t*, unsigned int);
    METHOD(params_serialize, Error, Builder&, keymaster_key_param_t*, unsigned int);
};

// ---- Public-key conversions ----

struct Conversions {
    using Class = KeymasterCryptoDevice;
    static_assert(std::is_default_constructible_v<Class> && std::has_virtual_destructor_v<Class>);
    METHOD(pkcs8_to_internal, Error, keymaster_algorithm_t, const Blob*,
           _keymaster_ec_import_internal_t*);
    METHOD(internal_to_x509, Error, _keymaster_export_internal_t*, Blob*);
    METHOD(ecsig_to_internal, Error, const Blob*, _keymaster_ec_sig_internal_t*);
    METHOD(internal_to_ecsig, Error, _keymaster_ec_sig_internal_t*, Blob*);
};

// ---- Service objects and their factories ----

static_assert(std::is_constructible_v<Keymaster4Device, keymaster_security_level_t>);
static_assert(std::is_constructible_v<Keymaster41Device, keymaster_security_level_t>);
static_assert(
    std::is_constructible_v<Keymaster41Device, keymaster_security_level_t,
                            std::unique_ptr<KeymasterHalDevice> (*)(keymaster_security_level_t)>);
static_assert(std::is_base_of_v<Keymaster4Device, Keymaster41Device>);

using Interface40 = ::android::hardware::keymaster::V4_0::IKeymasterDevice;
using Interface41 = ::android::hardware::keymaster::V4_1::IKeymasterDevice;
TYPE(::keymaster::V4_0::CreateKeymasterDevice, Interface40* (*)());
TYPE(::keymaster::V4_0::CreateSbKeymasterDevice, Interface40* (*)());
TYPE(::keymaster::V4_1::CreateKeymasterDevice, Interface41* (*)());
TYPE(::keymaster::V4_1::CreateSbKeymasterDevice, Interface41* (*)());

// ---- CBOR helpers ----

#define GETTER(name, value)                                                             \
    TYPE(CRGet##name, void (*)(CborReader*, value*));                                   \
    TYPE(CRGet##name##FromMapWithUint64Label, void (*)(CborReader*, uint64_t, value*)); \
    TYPE(CRGet##name##FromMapWithStringLabel, void (*)(CborReader*, const char*, value*))

GETTER(Bool, uint8_t);
GETTER(Uint64, uint64_t);
GETTER(Int64, int64_t);
GETTER(Uint32, uint32_t);
GETTER(Int32, int32_t);
GETTER(Uint8, uint8_t);
TYPE(CRGetBytesOrString, void (*)(CborReader*, uint8_t, Blob*));
TYPE(CRGetBytesOrStringFromMapWithUint64Label, void (*)(CborReader*, uint8_t, uint64_t, Blob*));
TYPE(CRGetBytesOrStringFromMapWithStringLabel, void (*)(CborReader*, uint8_t, const char*, Blob*));

#define CONTAINER(name)                                           \
    TYPE(CR_##name##_ENTER, int (*)(CborReader*));                \
    TYPE(CR_##name##_LABEL_ENTER, int (*)(CborReader*, int64_t)); \
    TYPE(CW_##name##_ENTER, int (*)(QCBOREncodeContext*));        \
    TYPE(CW_##name##_LABEL_ENTER, int (*)(QCBOREncodeContext*, int64_t))

CONTAINER(ARRAY);
CONTAINER(MAP);

}  // namespace
