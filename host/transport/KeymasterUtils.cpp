#include "KeymasterUtils.h"

#include <algorithm>
#include <cstring>

#include "Link.h"

namespace keymasterutils {
namespace {

using lumo::secureapp::Bytes;
using lumo::secureapp::ByteView;

// Holds the largest finish that a client may reasonably send in one piece.
constexpr size_t kRequestCapacity = 1 << 20;

}  // namespace

struct KeymasterUtils::Impl {
    explicit Impl(keymaster_security_level_t level) : link(lumo::transport::makeLink(level)) {}

    // Where `address` lies in the shared region; nothing when `length` bytes there leave it.
    bool inRegion(const void* address, uint32_t length) const {
        const uintptr_t start = reinterpret_cast<uintptr_t>(shared.data());
        const uintptr_t place = reinterpret_cast<uintptr_t>(address);
        if (place < start || place - start > shared.size()) return false;
        return length <= shared.size() - (place - start);
    }

    std::unique_ptr<lumo::transport::Link> link;
    uint32_t command = 0;
    Bytes request;   // made by the first init()
    Bytes response;  // of the last exchange
    Bytes shared = Bytes(kSharedBufferBytes, 0);
};

KeymasterUtils::KeymasterUtils(keymaster_security_level_t level)
    : impl_(std::make_unique<Impl>(level)) {}

KeymasterUtils::~KeymasterUtils() = default;

bool KeymasterUtils::isLegacy() {
    return impl_->link->facts().legacy;
}

keymaster_error_t KeymasterUtils::hsm_init() {
    return impl_->link->open();
}

uint32_t KeymasterUtils::getKeymasterVersion() {
    return impl_->link->facts().keymaster_version;
}

uint32_t KeymasterUtils::getKeymasterTaMinorVersion() {
    return impl_->link->facts().ta_minor_version;
}

uint32_t KeymasterUtils::getKeymasterHalMinorVersion() {
    return impl_->link->facts().hal_minor_version;
}

keymaster_error_t KeymasterUtils::init(uint32_t cmd_id, keymaster_blob_t* request) {
    if (request == nullptr) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    impl_->command = cmd_id;
    impl_->request.resize(kRequestCapacity);
    *request = {impl_->request.data(), impl_->request.size()};
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterUtils::sendCmd(const keymaster_blob_t& request,
                                          keymaster_blob_t* response) {
    if (response == nullptr) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (request.data_length > kRequestCapacity) return KM_ERROR_INVALID_INPUT_LENGTH;
    const keymaster_error_t error = impl_->link->exchangeCbor(
        impl_->command, ByteView(request.data, request.data_length), impl_->response);
    if (error != KM_ERROR_OK) return error;
    *response = {impl_->response.data(), impl_->response.size()};
    return KM_ERROR_OK;
}

void* KeymasterUtils::vaultlink_dev_init() {
    return impl_->shared.data();
}

int32_t KeymasterUtils::send_cmd(void* request, uint32_t request_length, void* response,
                                 uint32_t response_capacity) {
    if (!impl_->inRegion(request, request_length) ||
        !impl_->inRegion(response, response_capacity)) {
        return KM_ERROR_INVALID_ARGUMENT;
    }
    return impl_->link->exchangeRecord(
        ByteView(static_cast<const uint8_t*>(request), request_length),
        static_cast<uint8_t*>(response), response_capacity);
}

size_t KeymasterUtils::km_memscpy(void* dst, size_t dst_size, const void* src, size_t src_size) {
    const size_t size = std::min(dst_size, src_size);
    if (dst == nullptr || src == nullptr || size == 0) return 0;
    std::memmove(dst, src, size);
    return size;
}

}  // namespace keymasterutils
