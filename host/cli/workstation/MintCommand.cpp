// The command that makes tokens as the authenticators of the device do.
#include <endian.h>

#include <CLI/CLI.hpp>

#include "Failure.h"
#include "Files.h"
#include "RehearsalCommands.h"
#include "Report.h"
#include "VerificationTokens.h"
#include "WorkstationServices.h"

namespace lumo::cli {

namespace {

// An option with a number, which may be hexadecimal.
struct Number {
    std::string text;
    uint64_t maximum = UINT64_MAX;
    const char* option = "";

    CLI::Option* declare(CLI::App& app, const char* its_option, const std::string& help,
                         const char* initial, uint64_t its_maximum = UINT64_MAX) {
        option = its_option;
        text = initial;
        maximum = its_maximum;
        CLI::Option* added = app.add_option(option, text, help)->type_name("N");
        return text.empty() ? added : added->capture_default_str();
    }

    uint64_t value() const {
        if (const auto number = parseNumber(text, maximum)) return *number;
        throw Failure(Exit::usage, std::string(option) + ": '" + text + "' is not a number of " +
                                       (maximum == UINT64_MAX ? "64" : "32") + " bits");
    }
    std::optional<uint64_t> valueIfGiven() const {
        return text.empty() ? std::nullopt : std::optional(value());
    }
};

// Throws where nobody else could have the key that a token is made with.
void requireSharedKey(Rehearsal& rehearsal) {
    bool shares = false;
    requireFittingOptions();
    requireRehearsed("start the secure application", rehearsal.sharesItsKey(&shares));
    if (shares) return;
    throw Failure(Exit::usage,
                  "the HMAC key is another one in each process that runs the secure application "
                  "itself, so that the token would be good nowhere; name a running daemon "
                  "(LUMO_TRANSPORT=unix:PATH), or give world.conf of the state a random_seed");
}

struct MintArguments {
    std::string output;

    void declareOutput(CLI::App& app) {
        addOutput(app, output, "token to write, readable by its owner alone");
    }
    void requireOutput(const Common& common) const {
        requireSeparateReport(common, output);
        requireNoTerminal(output);
    }
    void write(const Common& common, const Bytes& token, Report report) const {
        writeFile(output, token, Output::Kind::secret);
        report["out"] = output;
        conclude(common, report);
    }
};

Action declareAuthToken(CLI::App& app, const Common& common) {
    struct Arguments : MintArguments {
        Number challenge, user, authenticator, timestamp;
        std::string type = "password";
    };
    const auto arguments = std::make_shared<Arguments>();
    arguments->challenge.declare(app, "--challenge", "handle of the operation that it is for", "0");
    arguments->user.declare(app, "--user-id", "secure id of the user", "")->required();
    arguments->authenticator.declare(app, "--authenticator-id", "secure id of the authenticator",
                                     "0");
    app.add_option("--type", arguments->type,
                   "what the user showed: words joined by +, or a number")
        ->type_name(wordsFor(Tag::USER_AUTH_TYPE))
        ->capture_default_str();
    arguments->timestamp.declare(app, "--timestamp",
                                 "milliseconds since boot (the application's clock)", "");
    arguments->declareOutput(app);
    return [arguments, &common] {
        auto type = valueOfWord(Tag::USER_AUTH_TYPE, arguments->type);
        if (!type) {
            if (const auto number = parseNumber(arguments->type, UINT32_MAX)) {
                type = static_cast<uint32_t>(*number);
            }
        }
        if (!type) {
            throw Failure(Exit::usage, "--type: '" + arguments->type + "' is none of " +
                                           wordsFor(Tag::USER_AUTH_TYPE));
        }
        Rehearsal::AuthToken fields;
        fields.challenge = arguments->challenge.value();
        fields.user_id = arguments->user.value();
        fields.authenticator_id = arguments->authenticator.value();
        fields.authenticator_type = *type;
        fields.timestamp = arguments->timestamp.valueIfGiven();
        arguments->requireOutput(common);
        Rehearsal rehearsal = rehearsalOf(common.level());
        requireSharedKey(rehearsal);
        Bytes token;
        requireRehearsed("make the auth token", rehearsal.mintAuthToken(fields, &token));
        arguments->write(common, token,
                         {{"challenge", idText(fields.challenge)},
                          {"userId", idText(fields.user_id)},
                          {"authenticatorId", idText(fields.authenticator_id)},
                          {"authenticatorType", nameOfValue(Tag::USER_AUTH_TYPE, *type)}});
    };
}

Action declareVerificationToken(CLI::App& app, const Common& common) {
    struct Arguments : MintArguments {
        Number challenge, timestamp;
        std::string level = "tee";
    };
    const auto arguments = std::make_shared<Arguments>();
    arguments->challenge.declare(app, "--challenge", "what the token answers", "0");
    arguments->timestamp.declare(app, "--timestamp",
                                 "milliseconds since boot (the application's clock)", "");
    app.add_option("--from", arguments->level, "security level that confirms")
        ->type_name(wordsFor(Tag::HARDWARE_TYPE))
        ->capture_default_str();
    arguments->declareOutput(app);
    return [arguments, &common] {
        const auto level = valueOfWord(Tag::HARDWARE_TYPE, arguments->level);
        if (!level) {
            throw Failure(Exit::usage, "--from: '" + arguments->level + "' is not one of " +
                                           wordsFor(Tag::HARDWARE_TYPE));
        }
        km::V4_0::VerificationToken token{};
        token.challenge = arguments->challenge.value();
        token.securityLevel = SecurityLevel{*level};
        Rehearsal::Timestamp timestamp = arguments->timestamp.valueIfGiven();
        arguments->requireOutput(common);
        Rehearsal rehearsal = rehearsalOf(common.level());
        requireSharedKey(rehearsal);
        Bytes mac;
        requireRehearsed(
            "make the verification token",
            rehearsal.mintVerificationToken(token.challenge, *level, &timestamp, &mac));
        token.timestamp = timestamp.value_or(0);
        token.mac = mac;
        arguments->write(common, encodeVerificationToken(token),
                         {{"challenge", idText(token.challenge)},
                          {"timestamp", token.timestamp},
                          {"securityLevel", toString(token.securityLevel)}});
    };
}

// The major types of CBOR (RFC 8949) that a confirmed message has.
enum CborType : uint8_t { kCborBytes = 2, kCborText = 3, kCborMap = 5 };

void appendCborHead(Bytes& bytes, CborType type, size_t count) {
    constexpr size_t kInFirstByte = 24;
    const auto first = static_cast<uint8_t>(type << 5);
    const auto append = [&bytes](size_t number) { bytes.push_back(static_cast<uint8_t>(number)); };
    if (count < kInFirstByte) return append(first | count);
    if (count <= UINT8_MAX) {
        append(first | 24U);
        return append(count);
    }
    append(first | 25U);
    append(count >> 8);
    append(count & 0xFF);
}

template <typename Content>
void appendCbor(Bytes& bytes, CborType type, const Content& content) {
    appendCborHead(bytes, type, content.size());
    bytes.insert(bytes.end(), content.begin(), content.end());
}

// What the platform shows to the user and has him confirm: {"prompt": TEXT, "extra": BYTES}.
Bytes confirmedMessage(const std::string& prompt, const Bytes& extra) {
    constexpr size_t kMaxPromptBytes = 6144;  // the platform's bound for the whole message
    if (prompt.size() + extra.size() > kMaxPromptBytes) {
        throw Failure(Exit::usage, "--prompt and --extra: together at most " +
                                       std::to_string(kMaxPromptBytes) + " bytes");
    }
    Bytes message;
    appendCborHead(message, kCborMap, 2);
    appendCbor(message, kCborText, std::string("prompt"));
    appendCbor(message, kCborText, prompt);
    appendCbor(message, kCborText, std::string("extra"));
    appendCbor(message, kCborBytes, extra);
    return message;
}

Action declareConfirmation(CLI::App& app, const Common& common) {
    struct Arguments : MintArguments {
        std::string prompt, extra, input, message;
    };
    const auto arguments = std::make_shared<Arguments>();
    auto* const prompt =
        app.add_option("--prompt", arguments->prompt, "text that the user confirmed");
    auto* const extra =
        app.add_option("--extra", arguments->extra, "bytes that belong to it")->type_name("BYTES");
    auto* const message = app.add_option("--message-out", arguments->message,
                                         "write the message, which is to be signed")
                              ->type_name("FILE");
    app.add_option("-i,--in", arguments->input, "data in place of a message of a prompt")
        ->type_name("FILE")
        ->excludes(prompt)
        ->excludes(extra)
        ->excludes(message);
    arguments->declareOutput(app);
    return [arguments, prompt, &common] {
        if (prompt->empty() && arguments->input.empty()) {
            throw Failure(Exit::usage, "--prompt is required, or --in");
        }
        arguments->requireOutput(common);
        requireOtherFile("input", arguments->input, arguments->output);
        const Bytes data =
            arguments->input.empty()
                ? confirmedMessage(arguments->prompt, parseBytes("--extra", arguments->extra))
                : readSmallFile(arguments->input);
        Rehearsal rehearsal = rehearsalOf(common.level());
        requireSharedKey(rehearsal);
        Bytes token;
        requireRehearsed("make the confirmation token", rehearsal.mintConfirmation(data, &token));
        Report report = {{"bytes", data.size()}};
        if (!arguments->message.empty()) {
            writeFile(arguments->message, data);
            report["message"] = arguments->message;
        }
        arguments->write(common, token, report);
    };
}

constexpr char kFooter[] =
    "Made with the HMAC key of the secure application that LUMO_TRANSPORT names: that of\n"
    "the running daemon's boot, or with a random_seed in world.conf of the state.\n\n";

constexpr Command kKinds[] = {
    {"auth-token", "What an authenticator makes when the user has shown himself",
     "Example:\n"
     "  lumokm mint auth-token --user-id 42 --type password --out user.token\n"
     "  lumokm sign --key user.key --digest sha256 --auth-token user.token \\\n"
     "      --in file --out file.sig",
     declareAuthToken},
    {"verification-token", "What one secure element makes to confirm a time to another",
     "Example:\n"
     "  lumokm mint verification-token --challenge 0x1234 --out tee.token",
     declareVerificationToken},
    {"confirmation", "What the trusted user interface makes when the user has confirmed a message",
     "The message is a CBOR map of \"prompt\" and \"extra\". BYTES are TEXT, hex:HEX or "
     "file:PATH.\n\n"
     "Example:\n"
     "  lumokm mint confirmation --prompt 'Pay 5?' --extra hex:01 \\\n"
     "      --message-out message --out confirmed.token\n"
     "  lumokm sign --key confirmed.key --digest sha256 --in message \\\n"
     "      --confirmation-token file:confirmed.token --out message.sig",
     declareConfirmation},
};

Action declareMint(CLI::App& app, const Common& common) {
    app.require_subcommand(0, 1);
    const auto chosen = std::make_shared<Action>();
    for (const Command& kind : kKinds) {
        CLI::App* sub = app.add_subcommand(kind.name, kind.summary);
        sub->fallthrough();
        sub->footer(std::string(kFooter) + kind.notes);
        sub->callback([chosen, action = kind.declare(*sub, common)] { *chosen = action; });
    }
    return [chosen] {
        if (!*chosen) {
            throw Failure(Exit::usage,
                          "a kind is required: auth-token, verification-token or confirmation");
        }
        (*chosen)();
    };
}

constexpr char kMintNotes[] =
    "lumokm mint KIND --help explains each kind with an example.\n\n"
    "Example:\n"
    "  lumokm mint auth-token --user-id 42 --out user.token";

}  // namespace

Command mintCommand() {
    return {"mint", "Make a token as another part of the device would", kMintNotes, declareMint};
}

}  // namespace lumo::cli
