// Commands that use keys on data.

#include "Command.h"
#include "Failure.h"
#include "Files.h"
#include "Operation.h"
#include "Report.h"
#include "ServiceSource.h"

namespace lumo::cli {

namespace {

using km::V4_0::Algorithm;
using km::V4_0::BlockMode;
using km::V4_0::KeyPurpose;

constexpr TagOption kSigningOptions[] = {
    {"--digest", Tag::DIGEST, "digest of the data"},
    {"--padding", Tag::PADDING, "padding, for RSA"},
    {"--mac-length", Tag::MAC_LENGTH, "length of the MAC in bits, for HMAC"},
};

constexpr TagOption kConfirmationOptions[] = {
    {"--confirmation-token", Tag::CONFIRMATION_TOKEN, "the user's confirmation of the data"},
};

constexpr TagOption kCipherOptions[] = {
    {"--mode", Tag::BLOCK_MODE, "block mode, for AES and 3DES"},
    {"--padding", Tag::PADDING, "padding"},
    {"--digest", Tag::DIGEST, "digest, for RSA with OAEP"},
    {"--mac-length", Tag::MAC_LENGTH, "length of the tag in bits, for GCM"},
    {"--nonce", Tag::NONCE, "nonce; the data then does not begin with it"},
};

// The arguments of all four commands.
struct OperationArguments {
    KeyArguments key;
    TagOptions options;
    std::string token;
    std::string input;

    template <size_t N>
    void declare(CLI::App& app, const TagOption (&table)[N], const std::string& input_help) {
        key.declare(app);
        options.declare(app, table, "Options");
        options.declareAny(app);
        addAuthToken(app, token);
        addInput(app, input, input_help);
    }

    // Throws Failure where the output cannot be what the command writes.
    void requireOutput(const Common& common, const std::string& output) const {
        requireSeparateReport(common, output);
        requireNoTerminal(output);
        requireOtherFiles(output);
    }

    void requireOtherFiles(const std::string& output) const {
        key.requireOtherFile(output);
        requireOtherFile("input", input, output);
    }

    OperationRequest request(KeyPurpose purpose) const {
        return {purpose, key.read(), joined(options.parameters(), key.binding()),
                readAuthToken(token)};
    }
};

Sink writeTo(Output& output) {
    return [&output](const Bytes& bytes) { output.write(bytes); };
}

void discard(const Bytes& /*output*/) {}

Action declareSign(CLI::App& app, const Common& common) {
    struct Arguments : OperationArguments {
        TagOptions confirmation;
        std::string output;
    };
    const auto arguments = std::make_shared<Arguments>();
    arguments->declare(app, kSigningOptions, "data to sign");
    arguments->confirmation.declare(app, kConfirmationOptions, "Options");
    addOutput(app, arguments->output, "signature to write");
    return [arguments, &common] {
        arguments->requireOutput(common, arguments->output);
        const OperationRequest request = arguments->request(KeyPurpose::SIGN);
        const std::vector<KeyParameter> confirmation = arguments->confirmation.parameters();
        Input input(arguments->input);
        Output output(arguments->output);
        Operation operation(connect(common.level()), request);
        awaitPresence(common.level(), operation.handle());
        operation.process(input, writeTo(output));
        operation.finish(confirmation, {}, writeTo(output));
        output.commit();
        conclude(common, writtenTo(arguments->output));
    };
}

Action declareVerify(CLI::App& app, const Common& common) {
    struct Arguments : OperationArguments {
        std::string signature;
    };
    const auto arguments = std::make_shared<Arguments>();
    arguments->declare(app, kSigningOptions, "data that was signed");
    app.add_option("--signature", arguments->signature, "signature of the data")
        ->required()
        ->type_name("FILE");
    return [arguments, &common] {
        const OperationRequest request = arguments->request(KeyPurpose::VERIFY);
        const Bytes signature = readSmallFile(arguments->signature);
        Input input(arguments->input);
        Operation operation(connect(common.level()), request);
        awaitPresence(common.level(), operation.handle());
        operation.process(input, discard);
        operation.finish({}, signature, discard);
        conclude(common, {{"valid", true}}, "the signature is good");
    };
}

// The arguments of encrypt and decrypt.
struct CipherArguments : OperationArguments {
    std::string associated_data;
    std::string nonce_file;
    std::string output;

    void declareCipher(CLI::App& app, const std::string& input_help,
                       const std::string& output_help) {
        declare(app, kCipherOptions, input_help);
        app.add_option("--aad", associated_data, "data that is authenticated as well, for GCM")
            ->type_name("FILE");
        addOutput(app, output, output_help);
    }

    void authenticate(Operation& operation) const {
        if (associated_data.empty()) return;
        Input data(associated_data);
        operation.authenticate(data);
    }
};

Action declareEncrypt(CLI::App& app, const Common& common) {
    const auto arguments = std::make_shared<CipherArguments>();
    arguments->declareCipher(app, "data to encrypt", "encrypted data to write");
    app.add_option("--nonce-out", arguments->nonce_file, "write the nonce there, as hex")
        ->type_name("FILE")
        ->excludes("--nonce");
    return [arguments, &common] {
        arguments->requireOutput(common, arguments->output);
        const OperationRequest request = arguments->request(KeyPurpose::ENCRYPT);
        Input input(arguments->input);
        Output output(arguments->output);
        Operation operation(connect(common.level()), request);
        awaitPresence(common.level(), operation.handle());
        Bytes nonce;
        for (const KeyParameter& parameter : operation.parameters()) {
            if (tagOf(parameter) == Tag::NONCE) nonce = parameter.blob;
        }
        if (arguments->nonce_file.empty()) output.write(nonce);
        arguments->authenticate(operation);
        operation.process(input, writeTo(output));
        operation.finish({}, {}, writeTo(output));
        if (!arguments->nonce_file.empty()) {
            const std::string text = toHex(nonce) + "\n";
            writeFile(arguments->nonce_file, Bytes(text.begin(), text.end()));
        }
        output.commit();
        Report report = writtenTo(arguments->output);
        report["nonce"] = toHex(nonce);
        conclude(common, report);
    };
}

constexpr size_t kGcmNonceBytes = 12;
constexpr size_t kAesBlockBytes = 16;
constexpr size_t kTripleDesBlockBytes = 8;

uint32_t integerOf(const std::vector<KeyParameter>& parameters, Tag tag) {
    for (const KeyParameter& parameter : parameters) {
        if (tagOf(parameter) == tag) return parameter.f.integer;
    }
    return 0;
}

// Bytes at the start of the data that are its nonce. Its length follows from the key's block
// length.
size_t leadingNonceBytes(const sp<Device>& device, const CipherArguments& arguments,
                         const OperationRequest& request) {
    if (arguments.options.has(Tag::NONCE)) return 0;
    switch (BlockMode{integerOf(request.parameters, Tag::BLOCK_MODE)}) {
        case BlockMode::GCM:
            return kGcmNonceBytes;
        case BlockMode::CTR:
            return kAesBlockBytes;
        case BlockMode::CBC: {
            const auto characteristics = characteristicsOf(
                device, request.key, arguments.key.appId(), arguments.key.appData());
            return Algorithm{integerOf(characteristics.hardwareEnforced, Tag::ALGORITHM)} ==
                           Algorithm::TRIPLE_DES
                       ? kTripleDesBlockBytes
                       : kAesBlockBytes;
        }
        default:
            return 0;
    }
}

void readNonce(Input& input, size_t size, OperationRequest& request) {
    if (size == 0) return;
    Bytes nonce(size);
    if (input.read(nonce.data(), size) != size) {
        throw Failure(Exit::other, input.name() + " is too short to begin with a nonce of " +
                                       std::to_string(size) +
                                       " bytes; give it the whole of what encrypt wrote");
    }
    request.parameters.push_back(makeBytes(Tag::NONCE, nonce));
}

Action declareDecrypt(CLI::App& app, const Common& common) {
    const auto arguments = std::make_shared<CipherArguments>();
    arguments->declareCipher(app, "encrypted data", "decrypted data to write");
    return [arguments, &common] {
        requireSeparateReport(common, arguments->output);
        arguments->requireOtherFiles(arguments->output);
        OperationRequest request = arguments->request(KeyPurpose::DECRYPT);
        Input input(arguments->input);
        Output output(arguments->output, Output::Kind::data, Output::Flow::held);
        const sp<Device> device = connect(common.level());
        readNonce(input, leadingNonceBytes(device, *arguments, request), request);
        Operation operation(device, request);
        awaitPresence(common.level(), operation.handle());
        arguments->authenticate(operation);
        operation.process(input, writeTo(output));
        operation.finish({}, {}, writeTo(output));
        output.commit();
        conclude(common, writtenTo(arguments->output));
    };
}

constexpr char kSignNotes[] =
    "EC signatures are DER, RSA signatures as long as the modulus, MACs --mac-length / 8 bytes,\n"
    "as openssl dgst writes and reads them.\n\n"
    "Examples:\n"
    "  lumokm sign --key ec.key --digest sha256 --in file --out file.sig\n"
    "  lumokm sign --key rsa.key --digest sha256 --padding pss --in file --out file.sig\n"
    "  lumokm sign --key hmac.key --digest sha256 --mac-length 256 --in file --out file.mac";

constexpr char kVerifyNotes[] =
    "Exit status 0 says that the signature is good, 5 that it is not.\n\n"
    "Example:\n"
    "  lumokm verify --key ec.key --digest sha256 --in file --signature file.sig";

constexpr char kEncryptNotes[] =
    "The output is the nonce (GCM 12 bytes, CTR and CBC one block), the ciphertext as openssl enc\n"
    "writes it, and for GCM the tag. With --nonce or --nonce-out the nonce is left out.\n"
    "RSA with OAEP takes MGF1 with SHA-1, whatever the digest: give openssl pkeyutl\n"
    "-pkeyopt rsa_padding_mode:oaep -pkeyopt rsa_oaep_md:sha256 -pkeyopt rsa_mgf1_md:sha1.\n\n"
    "Examples:\n"
    "  lumokm encrypt --key aes.key --mode gcm --padding none --mac-length 128 --in file "
    "--out file.gcm\n"
    "  lumokm encrypt --key aes.key --mode cbc --padding pkcs7 --nonce-out file.iv --in file "
    "--out file.cbc\n"
    "  lumokm encrypt --key rsa.key --padding oaep --digest sha256 --in secret --out secret.rsa";

constexpr char kDecryptNotes[] =
    "The input is what encrypt wrote; with --nonce it does not begin with the nonce.\n"
    "Nothing is written before all of it was decrypted and found whole; a bad GCM tag gives 5.\n\n"
    "Example:\n"
    "  lumokm decrypt --key aes.key --mode gcm --padding none --mac-length 128 --in file.gcm "
    "--out file";

}  // namespace

CommandGroup operationCommands() {
    return {"Operations",
            {{"sign", "Sign data, or make its MAC", kSignNotes, declareSign},
             {"verify", "Check a signature or a MAC", kVerifyNotes, declareVerify},
             {"encrypt", "Encrypt data", kEncryptNotes, declareEncrypt},
             {"decrypt", "Decrypt data", kDecryptNotes, declareDecrypt}}};
}

}  // namespace lumo::cli
