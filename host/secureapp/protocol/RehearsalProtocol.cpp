#include "secureapp/protocol/RehearsalProtocol.h"

#include <array>

#include "secureapp/access/Tokens.h"
#include "secureapp/base/Refusal.h"

namespace lumo::secureapp {
namespace {

// More is nobody's patience, and would let forgotten operations stay.
constexpr uint64_t kMaxKeptMillis = 24ULL * 3600 * 1000;

// A request of numbers alone.
template <size_t kCount>
std::array<uint64_t, kCount> numbers(ByteView request) {
    if (request.size() != kCount * kRehearsalNumberBytes) {
        refuse(KM_ERROR_INVALID_ARGUMENT,
               "a rehearsal's request has " + std::to_string(request.size()) +
                   " bytes in place of " + std::to_string(kCount * kRehearsalNumberBytes));
    }
    std::array<uint64_t, kCount> values = {};
    for (size_t i = 0; i < kCount; ++i) {
        values[i] = loadLittle(request.data() + i * kRehearsalNumberBytes, kRehearsalNumberBytes);
    }
    return values;
}

uint32_t word(uint64_t number, const char* what) {
    if (number <= UINT32_MAX) return static_cast<uint32_t>(number);
    refuse(KM_ERROR_INVALID_ARGUMENT, std::string(what) + " has more than 32 bits");
}

Bytes answer(uint64_t number) {
    Bytes bytes;
    appendLittle(bytes, number, kRehearsalNumberBytes);
    return bytes;
}

}  // namespace

uint64_t RehearsalProtocol::timeOf(uint64_t timestamp) {
    return timestamp == kTimestampNow ? keymaster_.bootMillis() : timestamp;
}

Bytes RehearsalProtocol::mintAuthToken(ByteView request) {
    const auto [challenge, user_id, authenticator_id, type, timestamp] = numbers<5>(request);
    return makeAuthToken({challenge, user_id, authenticator_id,
                          word(type, "the authenticator type"), timeOf(timestamp)},
                         keymaster_.sharedHmacKey());
}

Bytes RehearsalProtocol::mintVerificationToken(ByteView request) {
    const auto [challenge, timestamp, level] = numbers<3>(request);
    const uint64_t time = timeOf(timestamp);
    Bytes token = answer(time);
    append(token, verificationTokenMac(keymaster_.sharedHmacKey(), challenge, time,
                                       word(level, "the security level")));
    return token;
}

Bytes RehearsalProtocol::keepOperation(ByteView request) {
    const auto [handle, millis] = numbers<2>(request);
    if (millis == 0 || millis > kMaxKeptMillis) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "an operation is kept for 1 ms to " +
                                              std::to_string(kMaxKeptMillis) + " ms, not for " +
                                              std::to_string(millis));
    }
    if (records_.isEcOperation(handle)) {
        refuse(
            KM_ERROR_UNIMPLEMENTED,
            "over records the client's library converts the signatures of EC keys, and knows which "
            "operations these are only in the process that began them");
    }
    keymaster_.keepOperation(handle, millis);
    return {};
}

Bytes RehearsalProtocol::handle(RehearsalCommand command, ByteView request) {
    switch (command) {
        case RehearsalCommand::kMintAuthToken:
            return mintAuthToken(request);
        case RehearsalCommand::kMintVerificationToken:
            return mintVerificationToken(request);
        case RehearsalCommand::kMintConfirmation:
            return confirmationToken(keymaster_.sharedHmacKey(), request);
        case RehearsalCommand::kPress:
            numbers<0>(request);
            return answer(keymaster_.confirmPresence() ? 1 : 0);
        case RehearsalCommand::kAwaitsPresence:
            return answer(keymaster_.awaitsPresence(numbers<1>(request)[0]) ? 1 : 0);
        case RehearsalCommand::kKeepOperation:
            return keepOperation(request);
    }
    refuse(KM_ERROR_UNIMPLEMENTED, "there is no such command of a rehearsal");
}

}  // namespace lumo::secureapp
