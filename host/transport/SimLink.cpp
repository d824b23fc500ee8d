#include "SimLink.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "Failures.h"
#include "secureapp/base/Refusal.h"

namespace lumo::transport {
namespace {

using secureapp::ByteView;
using secureapp::Device;
using secureapp::Reply;

std::mutex new_state_mutex;
std::string new_state_directory;

std::shared_ptr<Device> sharedDevice(const secureapp::Profile& profile) {
    using Key = std::pair<std::string, std::string>;
    static std::mutex mutex;
    static std::map<Key, std::weak_ptr<Device>> devices;

    secureapp::DeviceOptions options;
    options.state_directory = secureapp::defaultStateDirectory();
    options.profile = &profile;
    const std::lock_guard<std::mutex> lock(mutex);
    std::weak_ptr<Device>& known =
        devices[{std::filesystem::absolute(options.state_directory).string(), profile.name}];
    if (std::shared_ptr<Device> device = known.lock()) return device;
    auto device = std::make_shared<Device>(options);
    known = device;
    if (device->isNew()) {
        const std::lock_guard<std::mutex> new_state_lock(new_state_mutex);
        new_state_directory = options.state_directory;
    }
    return device;
}

}  // namespace

std::string SimLink::newStateDirectory() {
    const std::lock_guard<std::mutex> lock(new_state_mutex);
    return new_state_directory;
}

keymaster_error_t SimLink::open() {
    if (app_ != nullptr) return KM_ERROR_OK;
    try {
        device_ = sharedDevice(profile_);
        app_ = &device_->app(level_);
        return KM_ERROR_OK;
    } catch (const secureapp::StateError& error) {
        return noteFailure(TransportStatus::state, KM_ERROR_SECURE_HW_ACCESS_DENIED, error.what());
    } catch (const secureapp::Refusal& error) {
        return noteFailure(TransportStatus::transport, error.code(),
                           std::string("the secure application does not start: ") + error.what());
    }
}

secureapp::ServerFacts SimLink::facts() {
    return {profile_.legacy, profile_.keymaster_version, profile_.ta_minor_version,
            profile_.hal_minor_version};
}

template <typename Exchange>
Reply SimLink::carryOut(Exchange exchange) {
    if (!std::exchange(disk_full_, false)) return exchange();
    const secureapp::FullDisk full;
    return exchange();
}

keymaster_error_t SimLink::restart() {
    if (const keymaster_error_t error = open(); error != KM_ERROR_OK) return error;
    device_->restart();
    return KM_ERROR_OK;
}

keymaster_error_t SimLink::fillDisk() {
    disk_full_ = true;
    return KM_ERROR_OK;
}

keymaster_error_t SimLink::exchangeCbor(uint32_t command, ByteView request, ByteView& response) {
    response_ = {};  // so that the next one can lie where it did, in the cache
    if (const keymaster_error_t error = open(); error != KM_ERROR_OK) return error;
    Reply reply = carryOut([&] { return app_->exchangeCbor(command, request); });
    noteAnswer(reply.error, reply.cause, reply.reason);
    response_ = std::move(reply.body);
    response = response_;
    return reply.error;
}

keymaster_error_t SimLink::exchangeRecord(ByteView request, uint8_t* response, size_t capacity) {
    if (const keymaster_error_t error = open(); error != KM_ERROR_OK) return error;
    const Reply reply = carryOut(
        [&] { return app_->exchangeRecord(request, ByteView(response, capacity), capacity); });
    noteAnswer(reply.error, reply.cause, reply.reason);
    std::copy(reply.body.begin(), reply.body.end(), response);
    return recordExchangeResult(reply.error, reply.body);
}

keymaster_error_t SimLink::rehearse(secureapp::RehearsalCommand command, ByteView request,
                                    secureapp::Bytes& answer) {
    if (const keymaster_error_t error = open(); error != KM_ERROR_OK) return error;
    Reply reply = app_->rehearse(command, request);
    noteAnswer(reply.error, reply.cause, reply.reason);
    answer = std::move(reply.body);
    return reply.error;
}

bool SimLink::reboot() {
    const bool repeats = device_ != nullptr && device_->drawsTheSameRandomNumbers();
    app_ = nullptr;
    device_.reset();
    return repeats;
}

}  // namespace lumo::transport
