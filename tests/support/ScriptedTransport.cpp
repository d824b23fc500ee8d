#include "ScriptedTransport.h"

#include <KeymasterUtils.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace lumo::test {
namespace {

constexpr uint32_t kSharedBytes = keymasterutils::KeymasterUtils::kSharedBufferBytes;

}  // namespace

ScriptedTransport& ScriptedTransport::instance() {
    static ScriptedTransport script;
    return script;
}

void ScriptedTransport::reset(uint8_t fill) {
    *this = ScriptedTransport();
    shared_ = std::make_unique<uint8_t[]>(kSharedBytes);
    std::fill_n(shared_.get(), kSharedBytes, fill);
}

std::string ScriptedTransport::callNames() const {
    std::string names;
    for (const TransportCall& call : calls) names += (names.empty() ? "" : " ") + call.name;
    return names;
}

const TransportCall& ScriptedTransport::lastSent() const {
    for (auto call = calls.rbegin(); call != calls.rend(); ++call) {
        if (call->name == "sendCmd" || call->name == "send_cmd") return *call;
    }
    throw std::logic_error("nothing was sent");
}

size_t ScriptedTransport::sentCount() const {
    return static_cast<size_t>(
        std::count_if(calls.begin(), calls.end(), [](const TransportCall& call) {
            return call.name == "sendCmd" || call.name == "send_cmd";
        }));
}

TransportReply ScriptedTransport::takeReply() {
    if (replies.empty()) return {};
    TransportReply reply = std::move(replies.front());
    replies.pop_front();
    return reply;
}

Bytes words(const std::vector<uint32_t>& values) {
    Bytes bytes;
    for (uint32_t value : values) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<uint8_t>(value >> shift));
        }
    }
    return bytes;
}

uint32_t wordAt(const Bytes& bytes, size_t word) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) {
        value |= static_cast<uint32_t>(bytes.at(word * 4 + i)) << (8 * i);
    }
    return value;
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

}  // namespace lumo::test

namespace keymasterutils {

using lumo::test::ScriptedTransport;
using lumo::test::TransportCall;
using lumo::test::TransportReply;

struct KeymasterUtils::Impl {};

KeymasterUtils::KeymasterUtils(keymaster_security_level_t level) {
    // By its bytes: it may be a level that there is not.
    std::memcpy(&ScriptedTransport::instance().level, &level, sizeof(level));
}

KeymasterUtils::~KeymasterUtils() = default;

bool KeymasterUtils::isLegacy() {
    ScriptedTransport::instance().calls.push_back({"isLegacy", 0, {}, {}});
    return ScriptedTransport::instance().legacy;
}

keymaster_error_t KeymasterUtils::hsm_init() {
    ScriptedTransport::instance().calls.push_back({"hsm_init", 0, {}, {}});
    return static_cast<keymaster_error_t>(ScriptedTransport::instance().hsm_result);
}

uint32_t KeymasterUtils::getKeymasterVersion() {
    return ScriptedTransport::instance().keymaster_version;
}

uint32_t KeymasterUtils::getKeymasterTaMinorVersion() {
    return ScriptedTransport::instance().ta_minor_version;
}

uint32_t KeymasterUtils::getKeymasterHalMinorVersion() {
    return ScriptedTransport::instance().hal_minor_version;
}

keymaster_error_t KeymasterUtils::init(uint32_t cmd_id, keymaster_blob_t* request) {
    ScriptedTransport& script = ScriptedTransport::instance();
    script.calls.push_back({"init", cmd_id, {}, {}});
    script.pending_command = cmd_id;
    script.cbor_request.assign(script.cbor_capacity, 0xEE);
    script.cbor_request.shrink_to_fit();
    *request = {script.cbor_request.data(), script.cbor_request.size()};
    // The library ignores the result; an error code shows that.
    return KM_ERROR_UNKNOWN_ERROR;
}

keymaster_error_t KeymasterUtils::sendCmd(const keymaster_blob_t& request,
                                          keymaster_blob_t* response) {
    ScriptedTransport& script = ScriptedTransport::instance();
    script.calls.push_back({"sendCmd",
                            script.pending_command,
                            {request.data, request.data + request.data_length},
                            {}});
    TransportReply reply = script.takeReply();
    script.cbor_response = std::move(reply.response);
    script.cbor_response.shrink_to_fit();
    if (reply.result == 0) *response = {script.cbor_response.data(), script.cbor_response.size()};
    return static_cast<keymaster_error_t>(reply.result);
}

void* KeymasterUtils::vaultlink_dev_init() {
    ScriptedTransport& script = ScriptedTransport::instance();
    script.calls.push_back({"vaultlink_dev_init", 0, {}, {}});
    if (script.shared_buffers == 0) return nullptr;
    --script.shared_buffers;
    return script.sharedBuffer();
}

int32_t KeymasterUtils::send_cmd(void* request, uint32_t request_length, void* response,
                                 uint32_t response_capacity) {
    ScriptedTransport& script = ScriptedTransport::instance();
    const auto* sent = static_cast<const uint8_t*>(request);
    auto* answer = static_cast<uint8_t*>(response);
    TransportCall call{
        "send_cmd", 0, {sent, sent + request_length}, {answer, answer + response_capacity}};
    if (request_length >= 4) call.command_id = lumo::test::wordAt(call.request, 0);
    script.calls.push_back(std::move(call));
    const TransportReply reply = script.takeReply();
    const size_t length = std::min<size_t>(reply.response.size(), response_capacity);
    std::copy_n(reply.response.begin(), length, answer);
    return reply.result;
}

size_t KeymasterUtils::km_memscpy(void* dst, size_t dst_size, const void* src, size_t src_size) {
    const size_t length = std::min(dst_size, src_size);
    if (length != 0) std::memcpy(dst, src, length);
    return length;
}

}  // namespace keymasterutils
