// Commands of HMAC key agreement and authorization verification.

#include <algorithm>
#include <tuple>

#include "Command.h"
#include "Failure.h"
#include "Files.h"
#include "Report.h"
#include "VerificationTokens.h"

namespace lumo::cli {

namespace {

using km::V4_0::HmacSharingParameters;

constexpr char kOwn[] = "own";
constexpr size_t kNonceBytes = decltype(HmacSharingParameters::nonce)::size();

HmacSharingParameters sharingParameters(const sp<Device>& device) {
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    HmacSharingParameters parameters{};
    require("read the HMAC sharing parameters",
            device->getHmacSharingParameters([&](ErrorCode code, const auto& found) {
                error = code;
                parameters = found;
            }),
            error);
    return parameters;
}

Bytes agree(const sp<Device>& device, const std::vector<HmacSharingParameters>& parameters) {
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    Bytes check;
    require("agree on the HMAC key",
            device->computeSharedHmac(parameters,
                                      [&](ErrorCode code, const HidlBytes& found) {
                                          error = code;
                                          check = found;
                                      }),
            error);
    return check;
}

Bytes nonceOf(const HmacSharingParameters& parameters) {
    return Bytes(parameters.nonce.data(), parameters.nonce.data() + kNonceBytes);
}

Action declareHmacParams(CLI::App& /*app*/, const Common& common) {
    return [&common] {
        const HmacSharingParameters parameters = sharingParameters(connect(common.level()));
        print({{"seed", toHex(parameters.seed)}, {"nonce", toHex(nonceOf(parameters))}},
              common.json);
    };
}

HmacSharingParameters parsePair(const std::string& text) {
    const size_t colon = std::min(text.find(':'), text.size());
    const auto seed = fromHex(text.substr(0, colon));
    const auto nonce = fromHex(text.substr(std::min(colon + 1, text.size())));
    if (!seed || !nonce || nonce->size() != kNonceBytes) {
        throw Failure(Exit::usage, "'" + text + "' is not SEED:NONCE in hexadecimal digits, with " +
                                       std::to_string(kNonceBytes) + " bytes of nonce");
    }
    HmacSharingParameters parameters{};
    parameters.seed = *seed;
    std::copy(nonce->begin(), nonce->end(), parameters.nonce.data());
    return parameters;
}

Bytes agreeWithGiven(const Common& common, const std::vector<std::string>& pairs) {
    const sp<Device> device = connect(common.level());
    std::vector<HmacSharingParameters> parameters;
    std::transform(pairs.begin(), pairs.end(), std::back_inserter(parameters),
                   [&](const std::string& pair) {
                       return pair == kOwn ? sharingParameters(device) : parsePair(pair);
                   });
    return agree(device, parameters);
}

// As the platform does at boot: the parameters of both are sorted, and both compute.
Bytes agreeBetweenLevels() {
    const sp<Device> devices[] = {connect(SecurityLevel::TRUSTED_ENVIRONMENT),
                                  connect(SecurityLevel::STRONGBOX)};
    std::vector<HmacSharingParameters> parameters = {sharingParameters(devices[0]),
                                                     sharingParameters(devices[1])};
    std::sort(parameters.begin(), parameters.end(), [](const auto& a, const auto& b) {
        return std::make_tuple(Bytes(a.seed), nonceOf(a)) <
               std::make_tuple(Bytes(b.seed), nonceOf(b));
    });
    Bytes check = agree(devices[0], parameters);
    if (agree(devices[1], parameters) != check) {
        throw Failure(
            Exit::check,
            "the trusted environment and StrongBox do not agree on the HMAC key; see that "
            "they share one state");
    }
    return check;
}

Action declareHmacAgree(CLI::App& app, const Common& common) {
    const auto pairs = std::make_shared<std::vector<std::string>>();
    app.add_option("PARAMS", *pairs, "SEED:NONCE in hex, or the word own, in the order of use")
        ->type_name("");
    return [pairs, &common] {
        const Bytes check = pairs->empty() ? agreeBetweenLevels() : agreeWithGiven(common, *pairs);
        print({{"sharingCheck", toHex(check)}}, common.json);
    };
}

Action declareVerifyAuthorization(CLI::App& app, const Common& common) {
    struct Arguments {
        std::string challenge = "0";
        std::string token;
        std::string output;
    };
    const auto arguments = std::make_shared<Arguments>();
    app.add_option("--challenge", arguments->challenge, "operation handle that the token is for")
        ->type_name("N")
        ->capture_default_str();
    addAuthToken(app, arguments->token);
    app.add_option("-o,--out", arguments->output, "write the token there as well, 56 bytes")
        ->type_name("FILE");
    return [arguments, &common] {
        const auto challenge = parseNumber(arguments->challenge, UINT64_MAX);
        if (!challenge) {
            throw Failure(Exit::usage,
                          "--challenge: '" + arguments->challenge + "' is not a number");
        }
        const HardwareAuthToken auth_token = readAuthToken(arguments->token);
        ErrorCode error = ErrorCode::UNKNOWN_ERROR;
        km::V4_0::VerificationToken token;
        const sp<Device> device = connect(common.level());
        require("verify the authorization",
                device->verifyAuthorization(
                    *challenge, {}, auth_token,
                    [&](ErrorCode code, const km::V4_0::VerificationToken& found) {
                        error = code;
                        token = found;
                    }),
                error);
        if (!arguments->output.empty()) {
            writeFile(arguments->output, encodeVerificationToken(token), Output::Kind::secret);
        }
        print({{"challenge", idText(token.challenge)},
               {"timestamp", token.timestamp},
               {"securityLevel", toString(token.securityLevel)},
               {"mac", toHex(token.mac)}},
              common.json);
    };
}

constexpr char kHmacAgreeNotes[] =
    "Without parameters the trusted environment and StrongBox agree with each other, as they do\n"
    "when the platform starts; exit status 5 says that they do not.\n\n"
    "Examples:\n"
    "  lumokm hmac-agree\n"
    "  lumokm hmac-agree own SEED:NONCE";

}  // namespace

CommandGroup sharingCommands() {
    return {"Sharing",
            {{"hmac-params", "Print the parameters of HMAC key agreement",
              "Example:\n  lumokm hmac-params --strongbox", declareHmacParams},
             {"hmac-agree", "Agree on the HMAC key and print the check value", kHmacAgreeNotes,
              declareHmacAgree},
             {"verify-authorization", "Print a verification token for a challenge",
              "Example:\n  lumokm verify-authorization --challenge 0x1234",
              declareVerifyAuthorization}}};
}

}  // namespace lumo::cli
