// Hostile requests to the software secure application, by both protocols.
//
// Input: a byte of switches, which also picks the protocol, two for the capacity of a record's
// answer, then requests, each after its two bytes of length; the first two bytes of a CBOR request
// are its command. One that begins as no request of either protocol does is an Event. Clock and
// randomness move only by what the input holds, so that a blob or an operation handle from one
// answer is valid in a later request. Beyond not crashing, nothing throws, every request gets
// a published error, a refused one a reason, and an answer stays within its capacity. A rehearsal
// is answered in the form of its command, a token that it mints is one of this device and says what
// was asked for, and the button counts once.

#include <memory>
#include <vector>

#include "Property.h"
#include "TestEnvironment.h"
#include "secureapp/access/Tokens.h"
#include "secureapp/protocol/SecureApp.h"

namespace {

using lumo::fuzz::exactCopy;
using lumo::fuzz::Input;
using lumo::secureapp::Bytes;
using lumo::secureapp::ByteView;
using lumo::secureapp::RehearsalCommand;
using lumo::secureapp::SecureApp;

const char* const kProfiles[] = {"cbor", "legacy-4", "legacy-3", "legacy-3-encoding"};

enum Switch : uint8_t {
    kStrongBox = 0x04,
    kOtherWire = 0x08,  // what the application does not speak
    kUserPresence = 0x10,
};

// What happens between requests: the first byte of what stands in place of one. The second is its
// number.
enum Event : uint8_t {
    kTimePasses = 0xFA,    // so many minutes
    kStorageTurns = 0xFB,  // it fails from here on, or works again
    kAppRestarts = 0xFC,   // and its client ends before it is asked again
    kClientComes = 0xFD,   // the requests that follow are of this client
    kClientEnds = 0xFE,
    kRehearsal = 0xFF,  // the command of this number, with the bytes behind it
};

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

void sendCbor(SecureApp& app, uint32_t command, const Bytes& request, uint64_t client) {
    const auto exact = exactCopy(request);
    const auto reply = app.exchangeCbor(command, {exact.get(), request.size()}, client);
    REQUIRE(isPublished(reply.error));
    REQUIRE(reply.reason.empty() == (reply.error == KM_ERROR_OK));
    lumo::fuzz::touch(reply.body.data(), reply.body.size());
}

void sendRecord(SecureApp& app, const Bytes& request, size_t capacity, uint64_t client) {
    const auto exact = exactCopy(request);
    // Update and finish name the place of their output in what the area holds before the answer.
    Bytes area = kOutputPlaces;
    area.resize(capacity, 0xEE);
    const auto reply = app.exchangeRecord({exact.get(), request.size()}, area, capacity, client);
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

uint64_t firstNumber(ByteView bytes) {
    return lumo::secureapp::loadLittle(bytes.data(), lumo::secureapp::kRehearsalNumberBytes);
}

void rehearse(SecureApp& app, uint8_t number, const Bytes& request) {
    const auto command = static_cast<RehearsalCommand>(number);
    const auto exact = exactCopy(request);
    const auto reply = app.rehearse(command, {exact.get(), request.size()});
    REQUIRE(isPublished(reply.error));
    REQUIRE(reply.reason.empty() == (reply.error == KM_ERROR_OK));
    if (reply.error != KM_ERROR_OK) {
        REQUIRE(reply.body.empty());
        return;
    }
    // By command, of which there is none 0.
    constexpr size_t kAnswerBytes[] = {0, lumo::secureapp::kAuthTokenBytes, 40, 32, 8, 8, 0};
    REQUIRE(number != 0 && number < std::size(kAnswerBytes));
    REQUIRE(reply.body.size() == kAnswerBytes[number]);
    if (command == RehearsalCommand::kMintAuthToken) {
        const auto token =
            lumo::secureapp::openAuthToken(reply.body, app.keymaster().sharedHmacKey());
        REQUIRE(token && token->challenge == firstNumber(request));
    }
    if (command == RehearsalCommand::kPress) {
        const auto again = app.rehearse(RehearsalCommand::kPress, {});
        REQUIRE(again.error == KM_ERROR_OK && firstNumber(again.body) == 0);
    }
}

// One application, and who talks to it.
class Device {
  public:
    Device(uint8_t switches, size_t capacity)
        : app_(*lumo::secureapp::findProfile(kProfiles[switches % 4]),
               (switches & kStrongBox) != 0 ? KM_SECURITY_LEVEL_STRONGBOX
                                            : KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT,
               configOf(switches), own_, shared_, clock_, random_),
          records_(app_.profile().legacy != ((switches & kOtherWire) != 0)),
          capacity_(capacity) {
        configure();
    }

    void take(const Bytes& request) {
        Input input(request.data(), request.size());
        const uint8_t event = input.byte();
        const uint8_t number = input.byte();
        const Bytes rest = input.take<Bytes>(input.size());
        switch (event) {
            case kTimePasses:
                return clock_.advance(uint64_t{number} * 60'000);
            case kStorageTurns:
                own_.broken = !own_.broken;
                return;
            case kAppRestarts:
                app_.restart();
                app_.endClient(client_);
                REQUIRE(!app_.confirmPresence());
                return configure();
            case kClientComes:
                client_ = number;
                return;
            case kClientEnds:
                return app_.endClient(number);
            case kRehearsal:
                return rehearse(app_, number, rest);
            default:
                if (records_) return sendRecord(app_, request, capacity_, client_);
                sendCbor(app_, uint32_t{event} << 8 | number, rest, client_);
        }
    }

  private:
    static lumo::secureapp::DeviceConfig configOf(uint8_t switches) {
        lumo::secureapp::DeviceConfig config;
        config.user_presence = (switches & kUserPresence) != 0;
        config.test_attestation_keys = true;
        return config;
    }

    void configure() {
        if (app_.profile().legacy) {
            sendRecord(app_, kConfigureRecord, 4, client_);
        } else {
            sendCbor(app_, 0x2116, kConfigureCbor, client_);
        }
    }

    lumo::test::MemoryState own_;
    lumo::test::MemoryState shared_;
    lumo::test::FixedClock clock_;
    lumo::test::CountingRandom random_;
    SecureApp app_;
    const bool records_;
    const size_t capacity_;
    uint64_t client_ = 0;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const uint8_t switches = input.byte();
    Device device(switches, input.twoBytes());
    while (input.size() != 0) device.take(input.take<Bytes>(input.twoBytes()));
    return 0;
}
