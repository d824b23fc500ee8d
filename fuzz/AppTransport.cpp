#include "AppTransport.h"

#include <KeymasterUtils.h>

#include <algorithm>
#include <cstring>

#include "Allocations.h"
#include "Property.h"

namespace lumo::fuzz {
namespace {

AppTransport* connected = nullptr;

constexpr size_t kCborRequestBytes = 40960;

}  // namespace

// An exchange with the application, whose own allocations fail only where that is asked for.
template <typename Exchange>
static secureapp::Reply exchanged(AppTransport& transport, Exchange exchange) {
    if (transport.app_runs_out_of_memory) return exchange();
    const AllocationsSucceed always;
    return exchange();
}

AppTransport::AppTransport(const char* profile, keymaster_security_level_t level,
                           const secureapp::DeviceConfig& config)
    : app(*secureapp::findProfile(profile), level, config, own, shared, clock, random),
      cbor_request(kCborRequestBytes, 0xEE),
      shared_buffer(keymasterutils::KeymasterUtils::kSharedBufferBytes, 0xEE) {
    connected = this;
}

AppTransport::~AppTransport() {
    connected = nullptr;
}

AppTransport& AppTransport::current() {
    REQUIRE(connected != nullptr);
    return *connected;
}

}  // namespace lumo::fuzz

namespace keymasterutils {

using lumo::fuzz::AllocationsSucceed;
using lumo::fuzz::AppTransport;
using lumo::fuzz::exchanged;
using lumo::secureapp::Reply;

struct KeymasterUtils::Impl {};

KeymasterUtils::KeymasterUtils(keymaster_security_level_t /*level*/) {}
KeymasterUtils::~KeymasterUtils() = default;

bool KeymasterUtils::isLegacy() {
    return AppTransport::current().app.profile().legacy;
}

keymaster_error_t KeymasterUtils::hsm_init() {
    return KM_ERROR_OK;
}

uint32_t KeymasterUtils::getKeymasterVersion() {
    return AppTransport::current().app.profile().keymaster_version;
}

uint32_t KeymasterUtils::getKeymasterTaMinorVersion() {
    return AppTransport::current().app.profile().ta_minor_version;
}

uint32_t KeymasterUtils::getKeymasterHalMinorVersion() {
    return AppTransport::current().app.profile().hal_minor_version;
}

keymaster_error_t KeymasterUtils::init(uint32_t cmd_id, keymaster_blob_t* request) {
    AppTransport& transport = AppTransport::current();
    transport.command = cmd_id;
    *request = {transport.cbor_request.data(), transport.cbor_request.size()};
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterUtils::sendCmd(const keymaster_blob_t& request,
                                          keymaster_blob_t* response) {
    AppTransport& transport = AppTransport::current();
    {
        const AllocationsSucceed always;
        transport.request.assign(request.data, request.data + request.data_length);
        transport.request.shrink_to_fit();
    }
    Reply reply = exchanged(transport, [&] {
        return transport.app.exchangeCbor(transport.command, transport.request);
    });
    transport.cbor_response = std::move(reply.body);
    if (reply.error == KM_ERROR_OK) {
        *response = {transport.cbor_response.data(), transport.cbor_response.size()};
    }
    return reply.error;
}

void* KeymasterUtils::vaultlink_dev_init() {
    return AppTransport::current().shared_buffer.data();
}

int32_t KeymasterUtils::send_cmd(void* request, uint32_t request_length, void* response,
                                 uint32_t response_capacity) {
    AppTransport& transport = AppTransport::current();
    const auto* sent = static_cast<const uint8_t*>(request);
    auto* answer = static_cast<uint8_t*>(response);
    {
        const AllocationsSucceed always;
        transport.request.assign(sent, sent + request_length);
        transport.request.shrink_to_fit();
    }
    const Reply reply = exchanged(transport, [&] {
        return transport.app.exchangeRecord(transport.request, {answer, response_capacity},
                                            response_capacity);
    });
    REQUIRE(reply.body.size() <= response_capacity);
    std::copy(reply.body.begin(), reply.body.end(), answer);
    return reply.body.empty() ? reply.error : KM_ERROR_OK;
}

size_t KeymasterUtils::km_memscpy(void* dst, size_t dst_size, const void* src, size_t src_size) {
    const size_t length = std::min(dst_size, src_size);
    if (length != 0) std::memcpy(dst, src, length);
    return length;
}

}  // namespace keymasterutils
