// The command that attests a key.

#include "Command.h"
#include "Failure.h"
#include "Files.h"
#include "Pem.h"
#include "Report.h"

namespace lumo::cli {

namespace {

constexpr TagOption kAttestationOptions[] = {
    {"--challenge", Tag::ATTESTATION_CHALLENGE, "challenge of the party that asks"},
    {"--application-id", Tag::ATTESTATION_APPLICATION_ID, "id of the application that asks"},
    {"--reset-since-id-rotation", Tag::RESET_SINCE_ID_ROTATION,
     "the device was reset since its unique id last changed"},
    {"--device-unique", Tag::DEVICE_UNIQUE_ATTESTATION, "sign with the device's own key (4.1)"},
};

constexpr TagOption kIdOptions[] = {
    {"--brand", Tag::ATTESTATION_ID_BRAND, "brand to attest"},
    {"--device", Tag::ATTESTATION_ID_DEVICE, "device name to attest"},
    {"--product", Tag::ATTESTATION_ID_PRODUCT, "product name to attest"},
    {"--serial", Tag::ATTESTATION_ID_SERIAL, "serial number to attest"},
    {"--imei", Tag::ATTESTATION_ID_IMEI, "IMEI to attest"},
    {"--meid", Tag::ATTESTATION_ID_MEID, "MEID to attest"},
    {"--manufacturer", Tag::ATTESTATION_ID_MANUFACTURER, "manufacturer to attest"},
    {"--model", Tag::ATTESTATION_ID_MODEL, "model to attest"},
};

struct Arguments {
    KeyArguments key;
    TagOptions options;
    std::string output;

    void declare(CLI::App& app) {
        key.declare(app);
        options.declare(app, kAttestationOptions, "Options");
        options.declare(app, kIdOptions, "Device ids");
        options.declareAny(app);
        addOutput(app, output, "certificates to write as PEM, the key's own first");
    }
};

void requireChallenge(const Bytes& challenge) {
    if (challenge.size() <= kMaxChallengeBytes) return;
    throw Failure(Exit::usage, "--challenge: it has " + std::to_string(challenge.size()) +
                                   " bytes; a challenge has at most " +
                                   std::to_string(kMaxChallengeBytes));
}

Action declareAttest(CLI::App& app, const Common& common) {
    const auto arguments = std::make_shared<Arguments>();
    arguments->declare(app);
    return [arguments, &common] {
        requireSeparateReport(common, arguments->output);
        arguments->key.requireOtherFile(arguments->output);
        requireChallenge(arguments->options.bytesOf(Tag::ATTESTATION_CHALLENGE));
        const Bytes blob = arguments->key.read();
        const auto parameters = joined(arguments->options.parameters(), arguments->key.binding());
        ErrorCode error = ErrorCode::UNKNOWN_ERROR;
        std::string chain;
        size_t count = 0;
        const sp<Device> device = connect(common.level());
        require("attest the key",
                device->attestKey(blob, parameters,
                                  [&](ErrorCode code, const hidl_vec<HidlBytes>& certificates) {
                                      error = code;
                                      count = certificates.size();
                                      for (const HidlBytes& certificate : certificates) {
                                          chain += toPem(kCertificateLabel, certificate);
                                      }
                                  }),
                error);
        writeFile(arguments->output, Bytes(chain.begin(), chain.end()));
        conclude(common, {{"out", arguments->output}, {"certificates", count}});
    };
}

constexpr char kAttestNotes[] =
    "BYTES are TEXT, hex:HEX or file:PATH. The chain ends with the root, which is the one to "
    "trust.\n\n"
    "Example:\n"
    "  lumokm attest --key ec.key --challenge hex:0102 --application-id my.app --out chain.pem";

}  // namespace

CommandGroup attestationCommands() {
    return {"Attestation",
            {{"attest", "Have the keymaster certify a key", kAttestNotes, declareAttest}}};
}

}  // namespace lumo::cli
