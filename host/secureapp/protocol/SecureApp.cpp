#include "secureapp/protocol/SecureApp.h"

#include <algorithm>
#include <new>

#include "secureapp/protocol/CborProtocol.h"
#include "secureapp/protocol/RecordProtocol.h"
#include "secureapp/protocol/RecordReader.h"

namespace lumo::secureapp {
namespace {

KeymasterOptions optionsFor(const Profile& profile, keymaster_security_level_t level,
                            const DeviceConfig& config) {
    KeymasterOptions options;
    options.level = level;
    options.blob_version = profile.blob_version;
    // The fixed-layout clients do not know the field that these blobs have more.
    options.early_boot_blobs = !profile.legacy;
    options.trusted_clock = config.trusted_clock;
    return options;
}

}  // namespace

struct SecureApp::Impl {
    Impl(const Profile& played, keymaster_security_level_t level, const DeviceConfig& config,
         State& state, State& shared_state, Clock& clock, RandomSource& random)
        : profile(played),
          keymaster(optionsFor(played, level, config), config, state, shared_state, clock, random),
          cbor(keymaster, profile),
          records(keymaster, profile) {}

    // Carries one request out; every way in which it can fail becomes a code.
    template <typename Work>
    keymaster_error_t guarded(Work work) {
        try {
            work();
            return KM_ERROR_OK;
        } catch (const Refusal& error) {
            return error.code();
        } catch (const StateError& error) {
            state_failure = error.what();
            return KM_ERROR_SECURE_HW_ACCESS_DENIED;
        } catch (const std::bad_alloc&) {
            return KM_ERROR_MEMORY_ALLOCATION_FAILED;
        } catch (...) {
            return KM_ERROR_UNKNOWN_ERROR;
        }
    }

    std::mutex mutex;
    const Profile profile;
    Keymaster keymaster;
    CborProtocol cbor;
    RecordProtocol records;
    std::string state_failure;
};

SecureApp::SecureApp(const Profile& profile, keymaster_security_level_t level,
                     const DeviceConfig& config, State& state, State& shared_state, Clock& clock,
                     RandomSource& random)
    : impl_(std::make_unique<Impl>(profile, level, config, state, shared_state, clock, random)) {}

SecureApp::~SecureApp() = default;

const Profile& SecureApp::profile() const {
    return impl_->profile;
}

CborReply SecureApp::handleCbor(uint32_t command, ByteView request, uint64_t client) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->keymaster.serve(client);
    CborReply reply;
    reply.error = impl_->guarded([&] { reply.body = impl_->cbor.handle(command, request); });
    return reply;
}

Bytes SecureApp::answerRecord(ByteView request, ByteView area, size_t capacity, uint64_t client) {
    if (capacity < kWordBytes) return {};
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->keymaster.serve(client);
    Bytes answer;
    keymaster_error_t status =
        impl_->guarded([&] { answer = impl_->records.handle(request, area, capacity); });
    if (status == KM_ERROR_OK && answer.size() > capacity) {
        status = KM_ERROR_INSUFFICIENT_BUFFER_SPACE;
    }
    if (status != KM_ERROR_OK) answer = RecordProtocol::refusal(status);
    answer.resize(std::min(answer.size(), capacity));
    return answer;
}

void SecureApp::endClient(uint64_t client) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->keymaster.abortAllOf(client);
    impl_->records.forgetEnded();
}

void SecureApp::confirmPresence() {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->keymaster.confirmPresence();
}

Keymaster& SecureApp::keymaster() {
    return impl_->keymaster;
}

std::string SecureApp::lastStateFailure() const {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->state_failure;
}

}  // namespace lumo::secureapp
