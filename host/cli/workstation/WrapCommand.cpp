// The command that wraps a key for a device.
#include "CreationArguments.h"
#include "Failure.h"
#include "Files.h"
#include "KeyWrapper.h"
#include "Pem.h"
#include "RehearsalCommands.h"

namespace lumo::cli {

namespace {

// Throws Failure for the name of no field.
void requireField(const std::string& name) {
    std::string names;
    for (const WrongField& field : wrongFields()) {
        if (name.empty() || name == field.name) return;
        names += (names.empty() ? "" : ", ") + std::string(field.name);
    }
    throw Failure(Exit::usage, "--wrong: '" + name + "' is none of " + names);
}

Action declareWrap(CLI::App& app, const Common& common) {
    struct Arguments {
        CreationArguments creation;
        std::string format;
        std::string wrapping_key;
        MaskingKey masking_key;
        std::string wrong;
        std::string input;
        std::string output;
    };
    const auto arguments = std::make_shared<Arguments>();
    app.add_option("--to", arguments->wrapping_key, "public key of the wrapping key")
        ->required()
        ->type_name("FILE");
    arguments->masking_key.declare(app);
    app.add_option("--wrong", arguments->wrong, "make this field wrong")->type_name("FIELD");
    addFormat(app, arguments->format, "form of the key (pkcs8 for RSA and EC, else raw)");
    addInput(app, arguments->input, "key: PKCS#8 in PEM or DER, or the raw bytes");
    addOutput(app, arguments->output, "wrapped key to write");
    arguments->creation.declare(app);
    return [arguments, &common] {
        requireField(arguments->wrong);
        requireSeparateReport(common, arguments->output);
        requireOtherFile("key", arguments->input, arguments->output);
        requireOtherFile("public key", arguments->wrapping_key, arguments->output);
        requireNoTerminal(arguments->output);
        KeyToWrap key;
        key.parameters = arguments->creation.parameters();
        key.format = importFormat(arguments->format, key.parameters);
        key.masking_key = arguments->masking_key.bytes();
        key.wrapping_key = readSmallFile(arguments->wrapping_key);
        key.material = readSmallFile(arguments->input);
        if (key.material.empty()) throw Failure(Exit::usage, "there is no key in the input");
        if (key.format == km::V4_0::KeyFormat::PKCS8) {
            key.material = privateKeyDer(key.material);
            requirePrivateKey(key.material);
        }
        const Bytes wrapped = wrapKey(key, arguments->wrong);
        writeFile(arguments->output, wrapped);
        conclude(common, {{"out", arguments->output}, {"bytes", wrapped.size()}});
    };
}

std::string notes() {
    std::string text =
        "For lumokm import-wrapped; needs no device. The other options say what the key is to\n"
        "be, as with import; --user-secure-id here is not an id: 1 stands for the user's\n"
        "password, 2 for the fingerprints, and import-wrapped is given their ids.\n\n"
        "--wrong FIELD makes one thing wrong, which a keymaster answers so:\n";
    for (const WrongField& field : wrongFields()) {
        std::string name = field.name;
        name.resize(24, ' ');
        text += "  " + name + std::string(field.how) + ": " + field.answer + "\n";
    }
    return text +
           "\nExample:\n"
           "  lumokm export --key wrapping.key --out wrapping.pem\n"
           "  lumokm wrap --to wrapping.pem --masking-key file:mask --algorithm aes \\\n"
           "      --purpose encrypt,decrypt --mode gcm --padding none --min-mac-length 128 \\\n"
           "      --in aes.bin --out wrapped.der";
}

}  // namespace

Command wrapCommand() {
    static const std::string its_notes = notes();
    return {"wrap", "Wrap a key for import-wrapped, as its sender does", its_notes.c_str(),
            declareWrap};
}

}  // namespace lumo::cli
