#include "Methods.h"

#include <KeymasterBuffer.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "CborSteps.h"

namespace lumo::test {
namespace {

using keymasterdevice::KeymasterBuffer;
using keymasterdevice::KeymasterCryptoDevice;
using keymasterdevice::KeymasterHalDevice;
using Method = std::function<int(KeymasterHalDevice&, Args&, Outputs&)>;

constexpr uint32_t kBufferBytes = 40960;

// Seeds and nonces, filled with one byte each: "0102,0304".
std::vector<hmac_sharing_params_t> shares(Args& a) {
    std::vector<hmac_sharing_params_t> list;
    const Bytes fills = a.bytes("shares");
    for (size_t i = 0; i + 1 < fills.size(); i += 2) {
        hmac_sharing_params_t& share = list.emplace_back();
        std::memset(share.seed, fills[i], sizeof(share.seed));
        std::memset(share.nonce, fills[i + 1], sizeof(share.nonce));
    }
    return list;
}

// Null for "null", so that a row can leave it out.
uint8_t* data(Args& a, const char* name) {
    const keymaster_blob_t* blob = a.blob(name);
    return blob == nullptr ? nullptr : const_cast<uint8_t*>(blob->data);
}

keymaster_key_blob_t* place(Args& a, Outputs& o) {
    // A blob that the caller holds already.
    if (a.has("held")) o.blob = {static_cast<uint8_t*>(std::calloc(1, 8)), 8};
    return a.out("blob", o.blob);
}

// With an entry array of one, unless the row says `none` or another number of entries.
keymaster_cert_chain_t* chain(Args& a, Outputs& o) {
    if (a.isNull("chain")) return a.out("chain", o.chain);
    if (a.has("entries"))
        o.chain.entry_count =
            a.is("entries", "none") ? 1 : static_cast<size_t>(a.number("entries"));
    if (a.is("entries", "none")) o.chain.entries = nullptr;
    return a.out("chain", o.chain);
}

// Every tag with a name, among all types and the numbers in use.
int tagNames(Outputs& o) {
    for (uint32_t type = 0; type < 16; ++type) {
        for (uint32_t number = 0; number < 0x800; ++number) {
            const uint32_t tag = type << 28 | number;
            const char* name = KeymasterHalDevice::TagToString(static_cast<keymaster_tag_t>(tag));
            if (name != nullptr) o.said += "\n" + hexNumber(tag) + " " + name;
        }
    }
    return 0;
}

int paramsSerialize(KeymasterHalDevice& d, Args& a, Outputs& o) {
    const Bytes before = Bytes(7, 0x11);
    std::vector<uint8_t> buffer(kBufferBytes, 0xEE);
    auto builder = std::make_unique<KeymasterBuffer>(buffer.data(), kBufferBytes);
    static_cast<void>(builder->append_to_buf(before.data(), 7));
    if (a.isNull("builder")) builder.reset();
    const auto* set = a.params("params");
    const int result = d.params_serialize(builder, set->params, static_cast<unsigned>(set->length));
    if (builder) o.said = showBytes({buffer.data(), buffer.data() + builder->get_offset()}, 0);
    return result;
}

// The parts that a row leaves out are all ones, as the device core hands them in.
int internalToX509(Args& a, Outputs& o) {
    keymasterdevice::_keymaster_export_internal_t record;
    std::memset(&record, 0xFF, sizeof(record));
    record.algorithm = a.as<uint32_t>("algorithm");
    const auto part = [&](const char* name, const uint8_t** bytes, uint32_t* length) {
        const keymaster_blob_t* blob = a.blob(name);
        if (blob == nullptr) return;
        *bytes = blob->data;
        *length = static_cast<uint32_t>(blob->data_length);
    };
    part("modulus", &record.modulus, &record.modulus_len);
    part("exponent", &record.exponent, &record.exponent_len);
    part("x", &record.pubkey_x, &record.pubkey_x_len);
    part("y", &record.pubkey_y, &record.pubkey_y_len);
    return KeymasterCryptoDevice().internal_to_x509(a.out("record", record),
                                                    a.out("output", o.output));
}

int internalToEcsig(Args& a, Outputs& o) {
    const keymaster_blob_t r = a.isNull("r") ? keymaster_blob_t{} : *a.blob("r");
    const keymaster_blob_t s = a.isNull("s") ? keymaster_blob_t{} : *a.blob("s");
    keymasterdevice::_keymaster_ec_sig_internal_t record = {
        const_cast<uint8_t*>(r.data), static_cast<uint32_t>(r.data_length),
        const_cast<uint8_t*>(s.data), static_cast<uint32_t>(s.data_length)};
    return KeymasterCryptoDevice().internal_to_ecsig(a.out("record", record),
                                                     a.out("output", o.output));
}

#define ONE(name, ...)                                                      \
    {                                                                       \
#name, [](KeymasterHalDevice &d, Args &a, Outputs &o) -> int {            \
            return static_cast<void>(d), static_cast<void>(a), static_cast<void>(o), \
                   __VA_ARGS__;                                                   \
        } \
    }
// A method and its twin for records.
#define BOTH(name, ...) \
    ONE(name, d.name(__VA_ARGS__)), ONE(legacy_##name, d.legacy_##name(__VA_ARGS__))

const std::map<std::string, Method>& methods() {
    static const std::map<std::string, Method> all = {
        BOTH(configure, a.params("params")),
        BOTH(generate_key, a.params("params"), place(a, o), a.out("chars", o.chars)),
        ONE(generate_key_common, d.generate_key_common(a.params("params"), place(a, o))),
        BOTH(get_key_characteristics, a.key("key"), a.blob("client_id"), a.blob("app_data"),
             a.out("chars", o.chars)),
        BOTH(import_key, a.params("params"), a.as<keymaster_key_format_t>("format"), a.blob("data"),
             place(a, o), a.out("chars", o.chars)),
        BOTH(export_key, a.as<keymaster_key_format_t>("format"), a.key("key"), a.blob("client_id"),
             a.blob("app_data"), a.out("output", o.output)),
        BOTH(attest_key, a.key("key"), a.params("params"), chain(a, o)),
        BOTH(upgrade_key, a.key("key"), a.params("params"), place(a, o)),
        BOTH(begin_operation, a.as<keymaster_purpose_t>("purpose"), a.key("key"),
             a.params("params"), a.out("out", o.out), a.out("handle", o.handle)),
        BOTH(update_operation, a.number("op"), a.params("params"), a.blob("input"),
             a.out("consumed", o.consumed), a.out("out", o.out), a.out("output", o.output)),
        BOTH(finish_operation, a.number("op"), a.params("params"), a.blob("input"),
             a.blob("signature"), a.out("out", o.out), a.out("output", o.output)),
        BOTH(abort_operation, a.number("op")),
        BOTH(delete_key, a.key("key")),
        BOTH(delete_all_keys),
        BOTH(destroy_device_ids),
        BOTH(import_wrapped_key, a.params("params"), a.number("password"), a.number("biometric"),
             a.bytes("wrapped"), a.bytes("wrapping"), a.bytes("masking"), place(a, o),
             a.out("chars", o.chars)),
        BOTH(get_hmac_sharing_parameters, a.out("hmac", o.hmac)),
        BOTH(compute_shared_hmac, shares(a), o.check),
        BOTH(get_date_support,
             (o.supported = a.number("was") != 0, a.out("supported", o.supported))),
        ONE(set_early_boot_ended, d.set_early_boot_ended()),
        ONE(set_device_locked, d.set_device_locked(a.number("password_only") != 0)),
        ONE(verifyAuthorization,
            d.verifyAuthorization(a.number("challenge"), a.out("token", o.token))),
        ONE(LegacyVerifyAuthorization,
            d.LegacyVerifyAuthorization(a.number("challenge"), a.out("token", o.token))),
        ONE(SetRot, d.SetRot(data(a, "root"), nullptr, a.number("locked") != 0, data(a, "state"),
                             a.as<_km_boot_state_color_t>("color"), a.as<uint32_t>("version"),
                             a.as<uint32_t>("patchlevel"))),
        ONE(LegacySetRot, d.LegacySetRot(data(a, "root"), nullptr, a.number("locked") != 0,
                                         data(a, "state"), a.as<_km_boot_state_color_t>("color"),
                                         a.as<uint32_t>("version"), a.as<uint32_t>("patchlevel"))),
        ONE(get_keymaster_version, (o.said = std::to_string(d.get_keymaster_version()), 0)),
        ONE(TagToString, tagNames(o)),
        ONE(PrintParams, (d.PrintParams(a.params("params")->params, 1), 0)),
        ONE(params_serialize, paramsSerialize(d, a, o)),
        ONE(read_cbor, (o.said = readCbor(a.bytes("message"), a.text("steps")), 0)),
        ONE(write_cbor, (o.said = writeCbor(a.text("steps")), 0)),
        ONE(pkcs8_to_internal,
            KeymasterCryptoDevice().pkcs8_to_internal(a.as<keymaster_algorithm_t>("algorithm"),
                                                      a.blob("key"), a.out("ec_key", o.ec_key))),
        ONE(internal_to_x509, internalToX509(a, o)),
        ONE(ecsig_to_internal, KeymasterCryptoDevice().ecsig_to_internal(
                                   a.blob("signature"), a.out("ec_sig", o.ec_sig))),
        ONE(internal_to_ecsig, internalToEcsig(a, o)),
    };
    return all;
}

#undef ONE
#undef BOTH

}  // namespace

std::string Args::text(const std::string& name) const {
    const auto found = texts_.find(name);
    return found == texts_.end() ? "" : found->second;
}

const keymaster_key_param_set_t* Args::params(const std::string& name) {
    kinds[name] = Kind::kParams;
    return text(name).empty() || isNull(name) ? nullptr : &params_.emplace_back(text(name)).set;
}

const keymaster_blob_t* Args::blob(const std::string& name) {
    kinds[name] = Kind::kBlob;
    return text(name).empty() || isNull(name) ? nullptr : &blobs_.emplace_back(text(name)).blob;
}

const keymaster_key_blob_t* Args::key(const std::string& name) {
    kinds[name] = Kind::kBlob;
    return text(name).empty() || isNull(name) ? nullptr : &blobs_.emplace_back(text(name)).key;
}

Bytes Args::bytes(const std::string& name) {
    return text(name).empty() ? Bytes() : parseBytes(text(name));
}

uint64_t Args::number(const std::string& name) {
    return text(name).empty() ? 0 : parseNumber(text(name));
}

int callMethod(const std::string& name, KeymasterHalDevice& device, Args& args, Outputs& outputs) {
    const auto method = methods().find(name);
    if (method == methods().end()) throw std::invalid_argument("no method " + name);
    return method->second(device, args, outputs);
}

}  // namespace lumo::test
