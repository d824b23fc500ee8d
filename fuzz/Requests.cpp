// Hostile requests to the software secure application, by both protocols.
//
// Input: a byte that picks the protocol and the security level, two for the capacity of a record's
// answer, then requests, each after its two bytes of length; the first two bytes of a CBOR request
// are its command. Clock and randomness are fixed, so that a blob or an operation handle from one
// answer is valid in a later request. Beyond not crashing, nothing throws, every request gets
// a published error, a refused one a reason, and an answer stays within its capacity.

#include <memory>
#include <vector>

#include "Property.h"
#include "TestEnvironment.h"
#include "secureapp/protocol/SecureApp.h"

namespace {

using lumo::fuzz::exactCopy;
using lumo::fuzz::Input;
using lumo::secureapp::Bytes;
using lumo::secureapp::SecureApp;

const char* const kProfiles[] = {"cbor", "legacy-4", "legacy-3", "legacy-3-encoding"};
constexpr uint8_t kStrongBox = 4;
constexpr uint8_t kOtherWire = 8;  // what the application does not speak

// CBOR and record: the system's version and patch levels, without which no key can be made.
const Bytes kConfigureCbor = {0xA4, 0x16, 0x03, 0x1A, 0x30, 0x00, 0x02, 0xC1, 0x1A, 0x00, 0x01,
                              0xAD, 0xB0, 0x1A, 0x30, 0x00, 0x02, 0xC2, 0x1A, 0x00, 0x03, 0x15,
                              0x1C, 0x1A, 0x30, 0x00, 0x02, 0xCE, 0x1A, 0x01, 0x34, 0x3E, 0xF5};
const Bytes kConfigureRecord = {
    0x16, 0x01, 0, 0,    12,   0,    0,    0, 2, 0, 0, 0,  // command, offset, count
    0xC1, 0x02, 0, 0x30, 0xB0, 0xAD, 0x01, 0, 0, 0, 0, 0,  // OS version
    0xC2, 0x02, 0, 0x30, 0x1C, 0x15, 0x03, 0, 0, 0, 0, 0,  // OS patch level
};

// Output from byte 20 on, with room for 1000 bytes.
const Bytes kOutputPlaces = {0, 0, 0, 0, 0, 0, 0, 0, 20, 0, 0, 0, 0xE8, 3, 0, 0};

bool isPublished(int64_t error) {
    return error <= KM_ERROR_OK && error >= KM_ERROR_UNKNOWN_ERROR;
}

void sendCbor(SecureApp& app, uint32_t command, const Bytes& request) {
    const auto exact = exactCopy(request);
    const auto reply = app.exchangeCbor(command, {exact.get(), request.size()});
    REQUIRE(isPublished(reply.error));
    REQUIRE(reply.reason.empty() == (reply.error == KM_ERROR_OK));
    lumo::fuzz::touch(reply.body.data(), reply.body.size());
}

void sendRecord(SecureApp& app, const Bytes& request, size_t capacity) {
    const auto exact = exactCopy(request);
    // Update and finish name the place of their output in what the area holds before the answer.
    Bytes area = kOutputPlaces;
    area.resize(capacity, 0xEE);
    const auto reply = app.exchangeRecord({exact.get(), request.size()}, area, capacity);
    const Bytes& answer = reply.body;
    REQUIRE(reply.reason.empty() == (reply.error == KM_ERROR_OK));
    REQUIRE(answer.size() <= capacity);
    // None where not even a status fits.
    REQUIRE(answer.empty() == (capacity < 4));
    if (answer.size() < 4) return;
    uint32_t status = 0;
    for (size_t i = 4; i > 0; --i) status = status << 8 | answer[i - 1];
    REQUIRE(isPublished(static_cast<int32_t>(status)));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const uint8_t kind = input.byte();
    const size_t capacity = input.twoBytes();
    lumo::test::MemoryState own;
    lumo::test::MemoryState shared;
    lumo::test::FixedClock clock;
    lumo::test::CountingRandom random;
    lumo::secureapp::DeviceConfig config;
    config.test_attestation_keys = true;
    SecureApp app(*lumo::secureapp::findProfile(kProfiles[kind % 4]),
                  (kind & kStrongBox) != 0 ? KM_SECURITY_LEVEL_STRONGBOX
                                           : KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT,
                  config, own, shared, clock, random);
    if (app.profile().legacy) {
        sendRecord(app, kConfigureRecord, 4);
    } else {
        sendCbor(app, 0x2116, kConfigureCbor);
    }
    const bool records = app.profile().legacy != ((kind & kOtherWire) != 0);
    while (input.size() != 0) {
        const auto request = input.take<Bytes>(input.twoBytes());
        if (records) {
            sendRecord(app, request, capacity);
            continue;
        }
        Input cbor(request.data(), request.size());
        const uint32_t command = cbor.twoBytes();
        sendCbor(app, command, cbor.take<Bytes>(cbor.size()));
    }
    return 0;
}
