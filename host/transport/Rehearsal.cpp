#include "lumo/Rehearsal.h"

#include <array>
#include <initializer_list>

#include "Failures.h"
#include "SimLink.h"
#include "SocketLink.h"
#include "TransportName.h"
#include "secureapp/protocol/Rehearsal.h"

namespace lumo {

using secureapp::appendLittle;
using secureapp::Bytes;
using secureapp::ByteView;
using secureapp::kRehearsalNumberBytes;
using secureapp::kTimestampNow;
using secureapp::loadLittle;
using secureapp::RehearsalCommand;

namespace {

constexpr size_t kTokenRecordBytes = 69;
constexpr size_t kMacBytes = 32;

Bytes numbers(std::initializer_list<uint64_t> values) {
    Bytes request;
    for (const uint64_t value : values) appendLittle(request, value, kRehearsalNumberBytes);
    return request;
}

uint64_t firstNumber(ByteView answer) {
    return loadLittle(answer.data(), kRehearsalNumberBytes);
}

}  // namespace

// One of the links, or the words for why there is none.
struct Rehearsal::Way {
    explicit Way(keymaster_security_level_t level) {
        try {
            const transport::TransportName name = transport::chosenTransport();
            if (name.kind == transport::TransportName::Kind::kUnix) {
                socket = std::make_unique<transport::SocketLink>(
                    level, name.path, transport::SocketLink::AfterRestart::kSend);
            } else {
                sim = std::make_unique<transport::SimLink>(level, *name.profile);
            }
        } catch (const transport::UsageError& error) {
            mistake = error.what();
        }
    }

    // An answer of another size than that of `size` bytes is none.
    keymaster_error_t call(RehearsalCommand command, ByteView request, size_t size) {
        if (!socket && !sim) {
            return transport::noteFailure(TransportStatus::usage,
                                          KM_ERROR_SECURE_HW_COMMUNICATION_FAILED, mistake);
        }
        const keymaster_error_t error = socket ? socket->rehearse(command, request, answer)
                                               : sim->rehearse(command, request, answer);
        if (error == KM_ERROR_OK && answer.size() != size) {
            return transport::noteFailure(TransportStatus::transport,
                                          KM_ERROR_SECURE_HW_COMMUNICATION_FAILED,
                                          "the secure application's answer has another length");
        }
        return error;
    }

    std::unique_ptr<transport::SocketLink> socket;
    std::unique_ptr<transport::SimLink> sim;
    std::string mistake;
    Bytes answer;
};

Rehearsal::Rehearsal(keymaster_security_level_t level) : way_(std::make_unique<Way>(level)) {}

Rehearsal::~Rehearsal() = default;

bool Rehearsal::isInProcess() const {
    return way_->sim != nullptr;
}

keymaster_error_t Rehearsal::sharesItsKey(bool* shares) {
    *shares = true;
    if (!way_->sim) return KM_ERROR_OK;
    // The first boot of a state also draws its secrets, and so other random numbers than any later
    // one: that boot has to be over.
    const keymaster_error_t error = way_->call(RehearsalCommand::kMintConfirmation, {}, kMacBytes);
    if (error != KM_ERROR_OK) return error;
    *shares = way_->sim->reboot();
    return KM_ERROR_OK;
}

keymaster_error_t Rehearsal::mintAuthToken(const AuthToken& fields, std::vector<uint8_t>* token) {
    const Bytes request =
        numbers({fields.challenge, fields.user_id, fields.authenticator_id,
                 fields.authenticator_type, fields.timestamp.value_or(kTimestampNow)});
    const keymaster_error_t error =
        way_->call(RehearsalCommand::kMintAuthToken, request, kTokenRecordBytes);
    if (error == KM_ERROR_OK) *token = way_->answer;
    return error;
}

keymaster_error_t Rehearsal::mintVerificationToken(uint64_t challenge, uint32_t security_level,
                                                   Timestamp* timestamp,
                                                   std::vector<uint8_t>* mac) {
    const Bytes request = numbers({challenge, timestamp->value_or(kTimestampNow), security_level});
    const keymaster_error_t error = way_->call(RehearsalCommand::kMintVerificationToken, request,
                                               kRehearsalNumberBytes + kMacBytes);
    if (error != KM_ERROR_OK) return error;
    *timestamp = firstNumber(way_->answer);
    *mac = ByteView(way_->answer).sub(kRehearsalNumberBytes).copy();
    return KM_ERROR_OK;
}

keymaster_error_t Rehearsal::mintConfirmation(const std::vector<uint8_t>& data,
                                              std::vector<uint8_t>* token) {
    const keymaster_error_t error =
        way_->call(RehearsalCommand::kMintConfirmation, data, kMacBytes);
    if (error == KM_ERROR_OK) *token = way_->answer;
    return error;
}

keymaster_error_t Rehearsal::press(bool* counted) {
    const keymaster_error_t error = way_->call(RehearsalCommand::kPress, {}, kRehearsalNumberBytes);
    if (error == KM_ERROR_OK) *counted = firstNumber(way_->answer) != 0;
    return error;
}

keymaster_error_t Rehearsal::awaitsPresence(uint64_t operation, bool* awaits) {
    const keymaster_error_t error =
        way_->call(RehearsalCommand::kAwaitsPresence, numbers({operation}), kRehearsalNumberBytes);
    if (error == KM_ERROR_OK) *awaits = firstNumber(way_->answer) != 0;
    return error;
}

keymaster_error_t Rehearsal::keepOperation(uint64_t operation, std::chrono::milliseconds patience) {
    const auto millis = static_cast<uint64_t>(patience.count());
    return way_->call(RehearsalCommand::kKeepOperation, numbers({operation, millis}), 0);
}

}  // namespace lumo
