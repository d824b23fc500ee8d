#include "secureapp/protocol/SecureApp.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <optional>

#include "secureapp/base/Refusal.h"
#include "secureapp/keys/KeymasterOptions.h"
#include "secureapp/protocol/CborProtocol.h"
#include "secureapp/protocol/RecordProtocol.h"
#include "secureapp/protocol/RehearsalProtocol.h"

namespace lumo::secureapp {
namespace {

// Nobody's operations begin by a rehearsal's command.
constexpr uint64_t kNoClient = UINT64_MAX;

KeymasterOptions optionsFor(const Profile& profile, keymaster_security_level_t level,
                            const DeviceConfig& config) {
    KeymasterOptions options;
    options.level = level;
    options.blob_version = profile.blob_version;
    // Fixed-layout clients do not know the additional field of these blobs.
    options.early_boot_blobs = !profile.legacy;
    options.trusted_clock = config.trusted_clock;
    return options;
}

// Runs one request; every failure becomes a reply.
template <typename Work>
Reply replyOf(Work work) {
    try {
        return {KM_ERROR_OK, work(), Cause::kNone, {}};
    } catch (const Refusal& refusal) {
        return {refusal.code(), {}, Cause::kRefusal, refusal.reason()};
    } catch (const StateError& error) {
        return {KM_ERROR_SECURE_HW_ACCESS_DENIED, {}, Cause::kStorage, error.what()};
    } catch (const std::bad_alloc&) {
        // Short enough to need no memory.
        return {KM_ERROR_MEMORY_ALLOCATION_FAILED, {}, Cause::kRefusal, "out of memory"};
    } catch (const std::exception& error) {
        return {KM_ERROR_UNKNOWN_ERROR,
                {},
                Cause::kRefusal,
                std::string("the secure application failed: ") + error.what()};
    } catch (...) {
        return {KM_ERROR_UNKNOWN_ERROR, {}, Cause::kRefusal, "unknown error"};
    }
}

}  // namespace

struct SecureApp::Impl {
    // What lasts from one start to the next.
    struct Boot {
        explicit Boot(Impl& impl)
            : keymaster(optionsFor(impl.profile, impl.level, impl.config), impl.config, impl.state,
                        impl.shared_state, impl.clock, impl.random),
              cbor(keymaster, impl.profile),
              records(keymaster, impl.profile),
              rehearsal(keymaster, records) {}

        Keymaster keymaster;
        CborProtocol cbor;
        RecordProtocol records;
        RehearsalProtocol rehearsal;
    };

    Impl(const Profile& played, keymaster_security_level_t its_level,
         const DeviceConfig& its_config, State& its_state, State& its_shared_state,
         Clock& its_clock, RandomSource& its_random)
        : profile(played),
          level(its_level),
          config(its_config),
          state(its_state),
          shared_state(its_shared_state),
          clock(its_clock),
          random(its_random) {
        boot.emplace(*this);
    }

    // The present boot. A restart ends it, and whoever asks next begins another.
    Boot& present() {
        if (!boot) boot.emplace(*this);
        return *boot;
    }
    Boot& presentFor(uint64_t client) {
        present().keymaster.serve(client);
        return *boot;
    }

    std::mutex mutex;
    const Profile profile;
    const keymaster_security_level_t level;
    const DeviceConfig config;
    State& state;
    State& shared_state;
    Clock& clock;
    RandomSource& random;
    std::optional<Boot> boot;
};

SecureApp::SecureApp(const Profile& profile, keymaster_security_level_t level,
                     const DeviceConfig& config, State& state, State& shared_state, Clock& clock,
                     RandomSource& random)
    : impl_(std::make_unique<Impl>(profile, level, config, state, shared_state, clock, random)) {}

SecureApp::~SecureApp() = default;

const Profile& SecureApp::profile() const {
    return impl_->profile;
}

Reply SecureApp::exchangeCbor(uint32_t command, ByteView request, uint64_t client) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return replyOf([&] { return impl_->presentFor(client).cbor.handle(command, request); });
}

Reply SecureApp::exchangeRecord(ByteView request, ByteView area, size_t capacity, uint64_t client) {
    Reply reply;
    if (capacity < kWordBytes) {
        return {KM_ERROR_INSUFFICIENT_BUFFER_SPACE,
                {},
                Cause::kRefusal,
                "the room for the answer holds no status"};
    }
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    reply = replyOf([&] {
        Bytes answer = impl_->presentFor(client).records.handle({request, area, capacity});
        if (answer.size() > capacity) {
            refuse(KM_ERROR_INSUFFICIENT_BUFFER_SPACE, "the answer of ", answer.size(),
                   " bytes does not fit into ", capacity);
        }
        return answer;
    });
    if (reply.error != KM_ERROR_OK) {
        reply.body = RecordOperations::refusalReply(reply.error);
        reply.body.resize(std::min(reply.body.size(), capacity));
    }
    return reply;
}

void SecureApp::endClient(uint64_t client) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    if (!impl_->boot) return;
    impl_->boot->keymaster.abortAllOf(client);
    impl_->boot->records.forgetEnded();
}

void SecureApp::restart() {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->boot.reset();
}

bool SecureApp::confirmPresence() {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->boot && impl_->boot->keymaster.confirmPresence();
}

Reply SecureApp::rehearse(RehearsalCommand command, ByteView request) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return replyOf([&] { return impl_->presentFor(kNoClient).rehearsal.handle(command, request); });
}

Keymaster& SecureApp::keymaster() {
    return impl_->present().keymaster;
}

}  // namespace lumo::secureapp
