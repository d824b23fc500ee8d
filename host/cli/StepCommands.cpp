// Commands that take an operation one call at a time, each in a process of its own.

#include <optional>

#include "Command.h"
#include "Failure.h"
#include "Files.h"
#include "Operation.h"
#include "Report.h"
#include "ServiceSource.h"
#include "VerificationTokens.h"

namespace lumo::cli {

namespace {

constexpr uint64_t kUsualPatienceSeconds = 600;
constexpr uint64_t kMaxPatienceSeconds = 86400;

constexpr TagOption kBeginOptions[] = {
    {"--purpose", Tag::PURPOSE, "what to begin"},
    {"--digest", Tag::DIGEST, "digest"},
    {"--padding", Tag::PADDING, "padding"},
    {"--mode", Tag::BLOCK_MODE, "block mode, for AES and 3DES"},
    {"--mac-length", Tag::MAC_LENGTH, "length of the MAC or tag in bits, for HMAC and GCM"},
    {"--nonce", Tag::NONCE, "nonce"},
};

constexpr TagOption kFinishOptions[] = {
    {"--confirmation-token", Tag::CONFIRMATION_TOKEN, "the user's confirmation of the data"},
};

// The purpose is an argument of begin and not among its parameters.
km::V4_0::KeyPurpose takePurpose(std::vector<KeyParameter>& parameters) {
    for (auto each = parameters.begin(); each != parameters.end(); ++each) {
        if (tagOf(*each) != Tag::PURPOSE) continue;
        const km::V4_0::KeyPurpose purpose{each->f.integer};
        parameters.erase(each);
        return purpose;
    }
    throw Failure(Exit::usage, "--purpose is required");
}

Action declareBegin(CLI::App& app, const Common& common) {
    struct Arguments {
        KeyArguments key;
        TagOptions options;
        std::string token;
        uint64_t patience = kUsualPatienceSeconds;
    };
    const auto arguments = std::make_shared<Arguments>();
    arguments->key.declare(app);
    arguments->options.declare(app, kBeginOptions, "Options");
    arguments->options.declareAny(app);
    addAuthToken(app, arguments->token);
    app.add_option("--keep", arguments->patience, "seconds that it may wait for each next step")
        ->check(CLI::Range(uint64_t{1}, kMaxPatienceSeconds).description(""))
        ->type_name("SECONDS")
        ->capture_default_str();
    return [arguments, &common] {
        std::vector<KeyParameter> parameters = arguments->options.parameters();
        const km::V4_0::KeyPurpose purpose = takePurpose(parameters);
        requireLastingOperations();
        Operation operation(connect(common.level()),
                            {purpose, arguments->key.read(),
                             joined(std::move(parameters), arguments->key.binding()),
                             readAuthToken(arguments->token)});
        keepOperation(common.level(), operation.handle(),
                      std::chrono::seconds(arguments->patience));
        Report report = {{"handle", idText(operation.handle())}};
        if (!operation.parameters().empty())
            report["parameters"] = describe(operation.parameters());
        if (awaitsPresence(common.level(), operation.handle())) report["awaitsPresence"] = true;
        print(report, common.json);
        operation.release();
    };
}

// The arguments of update, finish and abort.
struct StepArguments {
    std::string handle;
    std::string token;
    std::string verification_token;
    std::string input;
    std::string output;

    void declareHandle(CLI::App& app) {
        app.add_option("HANDLE", handle, "what begin printed")->required()->type_name("");
    }

    void declareTokens(CLI::App& app) {
        addAuthToken(app, token);
        addVerificationToken(app, verification_token);
    }

    void declareOutput(CLI::App& app) {
        app.add_option("-o,--out", output, "output to write; without, it is printed as hex")
            ->type_name("FILE");
    }

    Operation operation(const Common& common) const {
        const auto number = parseNumber(handle, UINT64_MAX);
        if (!number) throw Failure(Exit::usage, "'" + handle + "' is not an operation handle");
        return {connect(common.level()), *number, readAuthToken(token),
                readVerificationToken(verification_token)};
    }
};

// What a step puts out goes to a file, which is opened before the step is made, or else with the
// report.
class StepOutput {
  public:
    StepOutput(const Common& common, const std::string& path) : common_(common), path_(path) {
        if (path.empty()) return;
        requireSeparateReport(common, path);
        requireNoTerminal(path);
        file_.emplace(path);
    }

    Sink sink() {
        return [this](const Bytes& more) {
            if (file_) return file_->write(more);
            shown_.insert(shown_.end(), more.begin(), more.end());
        };
    }

    void conclude(Report report) {
        if (file_) {
            file_->commit();
            report["out"] = path_;
        } else if (!shown_.empty()) {
            report["output"] = toHex(shown_);
        }
        if (common_.json || (!file_ && !report.empty())) print(report, common_.json);
    }

  private:
    const Common& common_;
    const std::string path_;
    std::optional<Output> file_;
    Bytes shown_;
};

Action declareUpdate(CLI::App& app, const Common& common) {
    struct Arguments : StepArguments {
        std::string associated_data;
    };
    const auto arguments = std::make_shared<Arguments>();
    arguments->declareHandle(app);
    app.add_option("-i,--in", arguments->input, "data (standard input, unless --aad is given)")
        ->type_name("FILE");
    app.add_option("--aad", arguments->associated_data,
                   "data that is authenticated as well, for GCM; before all other data")
        ->type_name("FILE");
    arguments->declareOutput(app);
    arguments->declareTokens(app);
    return [arguments, &common] {
        const bool data = !arguments->input.empty() || arguments->associated_data.empty();
        requireOtherFile("input", arguments->input, arguments->output);
        StepOutput output(common, arguments->output);
        Operation operation = arguments->operation(common);
        if (!arguments->associated_data.empty()) {
            Input input(arguments->associated_data);
            operation.authenticate(input);
        }
        if (data) {
            Input input(arguments->input.empty() ? "-" : arguments->input);
            operation.process(input, output.sink());
        }
        output.conclude(Report::object());
    };
}

Action declareFinish(CLI::App& app, const Common& common) {
    struct Arguments : StepArguments {
        TagOptions options;
        std::string signature;
    };
    const auto arguments = std::make_shared<Arguments>();
    arguments->declareHandle(app);
    app.add_option("-i,--in", arguments->input, "last data, at most 16384 bytes; without, none")
        ->type_name("FILE");
    app.add_option("--signature", arguments->signature, "signature to verify")->type_name("FILE");
    arguments->options.declare(app, kFinishOptions, "Options");
    arguments->options.declareAny(app);
    arguments->declareOutput(app);
    arguments->declareTokens(app);
    return [arguments, &common] {
        Bytes input;
        if (!arguments->input.empty()) input = readSmallFile(arguments->input);
        if (input.size() > Operation::kMaxUpdateBytes) {
            throw Failure(Exit::usage, arguments->input + " has " + std::to_string(input.size()) +
                                           " bytes, and one call takes " +
                                           std::to_string(Operation::kMaxUpdateBytes) +
                                           "; send them with lumokm update");
        }
        Bytes signature;
        if (!arguments->signature.empty()) signature = readSmallFile(arguments->signature);
        requireOtherFile("input", arguments->input, arguments->output);
        StepOutput output(common, arguments->output);
        Operation operation = arguments->operation(common);
        operation.finish(arguments->options.parameters(), signature, output.sink(), input);
        Report report = Report::object();
        if (!signature.empty()) report["valid"] = true;
        output.conclude(std::move(report));
    };
}

Action declareAbort(CLI::App& app, const Common& common) {
    const auto arguments = std::make_shared<StepArguments>();
    arguments->declareHandle(app);
    return [arguments, &common] {
        arguments->operation(common).abort();
        conclude(common, {{"aborted", true}}, "the operation is aborted");
    };
}

constexpr char kBeginNotes[] =
    "Prints the operation's handle for update, finish and abort, and what the keymaster\n"
    "gave back, such as a nonce. The operation stays when this command has ended, until\n"
    "no step has come for --keep SECONDS. A keymaster takes only a few such operations.\n"
    "A secure application within this process (LUMO_TRANSPORT=sim) ends with it, and with\n"
    "it the operation: run the daemon.\n\n"
    "Example:\n"
    "  lumokm begin --key ec.key --purpose sign --digest sha256";

constexpr char kUpdateNotes[] =
    "Sends data in pieces of 16384 bytes. A refused piece ends the operation.\n\n"
    "Example:\n"
    "  lumokm update 0x1234567890abcdef --in file";

constexpr char kFinishNotes[] =
    "Data given here goes with the finishing call itself.\n\n"
    "Examples:\n"
    "  lumokm finish 0x1234567890abcdef --out file.sig\n"
    "  lumokm finish 0x1234567890abcdef --signature file.sig";

}  // namespace

CommandGroup stepCommands() {
    return {"Operations, step by step",
            {{"begin", "Begin an operation and print its handle", kBeginNotes, declareBegin},
             {"update", "Send data to an operation", kUpdateNotes, declareUpdate},
             {"finish", "Finish an operation", kFinishNotes, declareFinish},
             {"abort", "Abort an operation", "Example:\n  lumokm abort 0x1234567890abcdef",
              declareAbort}}};
}

}  // namespace lumo::cli
