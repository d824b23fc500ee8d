#include "SecureAppClient.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "Scratch.h"

namespace lumo::bench {
namespace {

constexpr size_t kRequestBytes = 1 << 15;
constexpr keymaster_security_level_t kLevel = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;

std::string makeStateDirectory(const std::string& name, const std::string& world) {
    const std::string directory = scratchFolder() + "/" + name;
    secureapp::prepareStateDirectory(directory);
    secureapp::writePrivateFile(directory + "/" + secureapp::kConfigFileName,
                                {reinterpret_cast<const uint8_t*>(world.data()), world.size()});
    return directory;
}

keymaster_key_param_set_t setOf(const std::vector<keymaster_key_param_t>& params) {
    return {const_cast<keymaster_key_param_t*>(params.data()), params.size()};
}

keymaster_blob_t blobOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

keymaster_key_blob_t keyOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

keymaster_blob_t answerOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

}  // namespace

SecureAppClient::SecureAppClient(const std::string& name, const std::string& world)
    : directory_(makeStateDirectory(name, world)),
      device_({directory_, secureapp::findProfile("cbor"), false}),
      app_(device_.app(kLevel)),
      codec_transport_(kLevel),
      request_(kRequestBytes) {
    const std::vector<keymaster_key_param_t> versions = {
        keymaster_param_int(KM_TAG_OS_VERSION, 110000),
        keymaster_param_int(KM_TAG_OS_PATCHLEVEL, 202012),
    };
    const keymaster_key_param_set_t set = setOf(versions);
    call(0x2116,
         [&](auto& codec, auto* request) { return codec.serializeClientParams(&set, request); });
}

Bytes SecureAppClient::call(
    uint32_t command,
    const std::function<keymaster_error_t(KeymasterSerialize&, keymaster_blob_t*)>& encode) {
    KeymasterSerialize codec(&codec_transport_);
    keymaster_blob_t request = {request_.data(), request_.size()};
    require(encode(codec, &request) == KM_ERROR_OK, "cannot encode a request");
    auto reply = app_.exchangeCbor(command, {request.data, request.data_length});
    require(reply.error == KM_ERROR_OK, "the secure application refuses");
    return std::move(reply.body);
}

Bytes SecureAppClient::keyBlobOf(const Bytes& answer) {
    keymaster_key_blob_t key = {nullptr, 0};
    require(
        KeymasterSerialize(&codec_transport_).deserializeClientKeyblob(answerOf(answer), &key) ==
            KM_ERROR_OK,
        "no key blob");
    Bytes blob(key.key_material, key.key_material + key.key_material_size);
    delete[] key.key_material;
    return blob;
}

Bytes SecureAppClient::generateKey(const std::vector<keymaster_key_param_t>& params) {
    const keymaster_key_param_set_t set = setOf(params);
    const Bytes answer = call(0x2108, [&](auto& codec, auto* request) {
        return codec.serializeClientParams(&set, request);
    });
    return keyBlobOf(answer);
}

Bytes SecureAppClient::importRawKey(const std::vector<keymaster_key_param_t>& params,
                                    const Bytes& material) {
    const keymaster_key_param_set_t set = setOf(params);
    const keymaster_blob_t data = blobOf(material);
    const Bytes answer = call(0x210B, [&](auto& codec, auto* request) {
        return codec.serializeClientImpKey(&set, KM_KEY_FORMAT_RAW, &data, request);
    });
    return keyBlobOf(answer);
}

void SecureAppClient::attestKey(const Bytes& blob, const Bytes& challenge) {
    const std::vector<keymaster_key_param_t> params = {
        keymaster_param_blob(KM_TAG_ATTESTATION_CHALLENGE, challenge.data(), challenge.size()),
        keymaster_param_blob(KM_TAG_ATTESTATION_APPLICATION_ID, challenge.data(), challenge.size()),
    };
    const keymaster_key_param_set_t set = setOf(params);
    const keymaster_key_blob_t key = keyOf(blob);
    call(0x2115, [&](auto& codec, auto* request) {
        return codec.serializeClientAttestKey(&set, &key, {}, {}, request);
    });
}

uint64_t SecureAppClient::begin(keymaster_purpose_t purpose, const Bytes& blob,
                                const std::vector<keymaster_key_param_t>& params) {
    const keymaster_key_param_set_t set = setOf(params);
    const keymaster_key_blob_t key = keyOf(blob);
    const Bytes answer = call(0x210F, [&](auto& codec, auto* request) {
        return codec.serializeClientBegin(purpose, &set, &key, request);
    });
    uint64_t operation = 0;
    keymaster_key_param_set_t out = {nullptr, 0};
    require(KeymasterSerialize(&codec_transport_)
                    .deserializeClientBegin(answerOf(answer), &out, &operation) == KM_ERROR_OK,
            "no operation handle");
    delete[] out.params;
    return operation;
}

Bytes SecureAppClient::finish(uint64_t operation, const Bytes& input) {
    const keymaster_blob_t data = blobOf(input);
    const Bytes answer = call(0x2112, [&](auto& codec, auto* request) {
        return codec.serializeClientFinish(operation, nullptr, &data, nullptr, request);
    });
    keymaster_blob_t output = {nullptr, 0};
    require(KeymasterSerialize(&codec_transport_)
                    .deserializeClientFinish(answerOf(answer), nullptr, &output) == KM_ERROR_OK,
            "no output");
    Bytes bytes(output.data, output.data + output.data_length);
    delete[] output.data;
    return bytes;
}

void SecureAppClient::abort(uint64_t operation) {
    call(0x2113, [&](auto& codec, auto* request) {
        return codec.serializeClientAbort(operation, request);
    });
}

}  // namespace lumo::bench
