#include "MemoryTransport.h"

#include <KeymasterUtils.h>

#include <algorithm>
#include <cstring>

#include "Scratch.h"
#include "secureapp/device/Device.h"

namespace {

using lumo::secureapp::Bytes;
using lumo::secureapp::ByteView;

constexpr size_t kRequestBytes = 1 << 17;

// Every secure application must have seen its own.
constexpr uint32_t kConfigure = 0x2116;

struct Answer {
    uint32_t command;
    Bytes body;
};

std::vector<Answer>& answers() {
    static std::vector<Answer> all;
    return all;
}

}  // namespace

namespace lumo::bench {

void forgetAnswers() {
    answers().clear();
}

}  // namespace lumo::bench

namespace keymasterutils {

struct KeymasterUtils::Impl {
    Impl(keymaster_security_level_t level)
        : device({lumo::bench::scratchFolder() + "/memory", lumo::secureapp::findProfile("cbor"),
                  true}),
          app(device.app(level)) {}

    lumo::secureapp::Device device;
    lumo::secureapp::SecureApp& app;
    uint32_t command = 0;
    Bytes request = Bytes(kRequestBytes);
    Bytes response;
    Bytes shared = Bytes(kSharedBufferBytes);
};

KeymasterUtils::KeymasterUtils(keymaster_security_level_t level)
    : impl_(std::make_unique<Impl>(level)) {}

KeymasterUtils::~KeymasterUtils() = default;

bool KeymasterUtils::isLegacy() {
    return false;
}

keymaster_error_t KeymasterUtils::hsm_init() {
    return KM_ERROR_OK;
}

uint32_t KeymasterUtils::getKeymasterVersion() {
    return impl_->app.profile().keymaster_version;
}

uint32_t KeymasterUtils::getKeymasterTaMinorVersion() {
    return impl_->app.profile().ta_minor_version;
}

uint32_t KeymasterUtils::getKeymasterHalMinorVersion() {
    return impl_->app.profile().hal_minor_version;
}

keymaster_error_t KeymasterUtils::init(uint32_t cmd_id, keymaster_blob_t* request) {
    impl_->command = cmd_id;
    *request = {impl_->request.data(), impl_->request.size()};
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterUtils::sendCmd(const keymaster_blob_t& request,
                                          keymaster_blob_t* response) {
    const auto known = std::find_if(answers().begin(), answers().end(), [&](const Answer& answer) {
        return answer.command == impl_->command;
    });
    if (known != answers().end()) {
        *response = {known->body.data(), known->body.size()};
        return KM_ERROR_OK;
    }
    auto reply = impl_->app.exchangeCbor(impl_->command, {request.data, request.data_length});
    if (reply.error != KM_ERROR_OK) return reply.error;
    impl_->response = std::move(reply.body);
    if (impl_->command != kConfigure) answers().push_back({impl_->command, impl_->response});
    *response = {impl_->response.data(), impl_->response.size()};
    return KM_ERROR_OK;
}

void* KeymasterUtils::vaultlink_dev_init() {
    return impl_->shared.data();
}

int32_t KeymasterUtils::send_cmd(void* request, uint32_t request_length, void* response,
                                 uint32_t response_capacity) {
    const Bytes answer =
        impl_->app
            .exchangeRecord({static_cast<const uint8_t*>(request), request_length},
                            {static_cast<const uint8_t*>(response), response_capacity},
                            response_capacity)
            .body;
    std::memcpy(response, answer.data(), answer.size());
    return 0;
}

size_t KeymasterUtils::km_memscpy(void* dst, size_t dst_size, const void* src, size_t src_size) {
    const size_t length = std::min(dst_size, src_size);
    if (length != 0) std::memcpy(dst, src, length);
    return length;
}

}  // namespace keymasterutils
