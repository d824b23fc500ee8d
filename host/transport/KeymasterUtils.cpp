#include "KeymasterUtils.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "ExchangeLog.h"
#include "Link.h"
#include "OneCaller.h"

namespace keymasterutils {
namespace {

using lumo::secureapp::Bytes;
using lumo::secureapp::ByteView;
using lumo::secureapp::FrameKind;
using lumo::secureapp::RequestFrame;
using lumo::transport::kRequestCapacity;
using Call = lumo::transport::OneCaller::Call;
using Wire = lumo::inspect::Wire;

struct Free {
    void operator()(uint8_t* memory) const { std::free(memory); }
};

// A record begins with the number of its command.
constexpr size_t kCommandBytes = 4;

// The secure application that a level means: StrongBox's has a level of its own, every other is the
// trusted environment's. The level comes from any caller and is compared as a word, since one
// without an enumerator must not be read as the enumeration.
keymaster_security_level_t served(const keymaster_security_level_t& level) {
    uint32_t word = 0;
    std::memcpy(&word, &level, sizeof(word));
    return word == KM_SECURITY_LEVEL_STRONGBOX ? KM_SECURITY_LEVEL_STRONGBOX
                                               : KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
}

}  // namespace

struct KeymasterUtils::Impl {
    explicit Impl(keymaster_security_level_t its_level)
        : level(its_level), link(lumo::transport::makeLink(level)) {}

    // Where `address` lies in the shared region; nothing when `length` bytes there leave it.
    bool inRegion(const void* address, uint32_t length) const {
        const uintptr_t start = reinterpret_cast<uintptr_t>(shared.data());
        const uintptr_t place = reinterpret_cast<uintptr_t>(address);
        if (place < start || place - start > shared.size()) return false;
        return length <= shared.size() - (place - start);
    }

    // A key that was sent in the clear does not stay in the buffers until they are used again.
    void wipeKeyMaterial(FrameKind kind, ByteView sent) {
        RequestFrame frame;
        frame.kind = kind;
        frame.level = level;
        frame.command = command;
        frame.body = sent;
        if (!lumo::secureapp::bringsKeyMaterial(frame) || sent.empty()) return;
        OPENSSL_cleanse(const_cast<uint8_t*>(sent.data()), sent.size());
    }

    const keymaster_security_level_t level;
    lumo::transport::OneCaller callers;
    std::unique_ptr<lumo::transport::Link> link;
    uint32_t command = 0;
    // Made by the first init(). The system hands out zeroed pages as they are touched.
    std::unique_ptr<uint8_t, Free> request;
    Bytes shared = Bytes(kSharedBufferBytes, 0);
};

KeymasterUtils::KeymasterUtils(keymaster_security_level_t level)
    : impl_(std::make_unique<Impl>(served(level))) {}

KeymasterUtils::~KeymasterUtils() = default;

bool KeymasterUtils::isLegacy() {
    const Call call(impl_->callers);
    return impl_->link->facts().legacy;
}

keymaster_error_t KeymasterUtils::hsm_init() {
    const Call call(impl_->callers);
    return impl_->link->open();
}

uint32_t KeymasterUtils::getKeymasterVersion() {
    const Call call(impl_->callers);
    return impl_->link->facts().keymaster_version;
}

uint32_t KeymasterUtils::getKeymasterTaMinorVersion() {
    const Call call(impl_->callers);
    return impl_->link->facts().ta_minor_version;
}

uint32_t KeymasterUtils::getKeymasterHalMinorVersion() {
    const Call call(impl_->callers);
    return impl_->link->facts().hal_minor_version;
}

keymaster_error_t KeymasterUtils::init(uint32_t cmd_id, keymaster_blob_t* request) {
    const Call call(impl_->callers);
    if (request == nullptr) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    impl_->command = cmd_id;
    if (!impl_->request) {
        impl_->request.reset(static_cast<uint8_t*>(std::calloc(kRequestCapacity, 1)));
    }
    if (!impl_->request) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    impl_->callers.takesBuffer();
    *request = {impl_->request.get(), kRequestCapacity};
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterUtils::sendCmd(const keymaster_blob_t& request,
                                          keymaster_blob_t* response) {
    const Call call(impl_->callers);
    if (response == nullptr) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (request.data_length > kRequestCapacity) return KM_ERROR_INVALID_INPUT_LENGTH;
    impl_->callers.sendsBuffer();
    ByteView answer;
    const ByteView sent(request.data, request.data_length);
    const keymaster_error_t error = impl_->link->exchangeCbor(impl_->command, sent, answer);
    if (lumo::transport::exchangesAreLogged()) {
        lumo::transport::logExchange(Wire::kCbor, impl_->command, sent.size(), answer.size());
    }
    // Only this object's own buffer may be written to.
    if (request.data == impl_->request.get()) impl_->wipeKeyMaterial(FrameKind::kCbor, sent);
    if (error != KM_ERROR_OK) return error;
    *response = {answer.data(), answer.size()};
    return KM_ERROR_OK;
}

void* KeymasterUtils::vaultlink_dev_init() {
    const Call call(impl_->callers);
    impl_->callers.takesBuffer();
    return impl_->shared.data();
}

int32_t KeymasterUtils::send_cmd(void* request, uint32_t request_length, void* response,
                                 uint32_t response_capacity) {
    const Call call(impl_->callers);
    if (!impl_->inRegion(request, request_length) ||
        !impl_->inRegion(response, response_capacity)) {
        return KM_ERROR_INVALID_ARGUMENT;
    }
    impl_->callers.sendsBuffer();
    const ByteView sent(static_cast<const uint8_t*>(request), request_length);
    const bool logged = lumo::transport::exchangesAreLogged() && sent.size() >= kCommandBytes;
    const auto command =
        logged ? static_cast<uint32_t>(lumo::secureapp::loadLittle(sent.data(), kCommandBytes)) : 0;
    const keymaster_error_t error =
        impl_->link->exchangeRecord(sent, static_cast<uint8_t*>(response), response_capacity);
    if (logged) {
        lumo::transport::logExchange(Wire::kRecord, command, sent.size(), response_capacity);
    }
    impl_->wipeKeyMaterial(FrameKind::kRecord, sent);
    return error;
}

size_t KeymasterUtils::km_memscpy(void* dst, size_t dst_size, const void* src, size_t src_size) {
    const size_t size = std::min(dst_size, src_size);
    if (dst == nullptr || src == nullptr || size == 0) return 0;
    std::memmove(dst, src, size);
    return size;
}

}  // namespace keymasterutils
