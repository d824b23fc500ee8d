// Commands that generate, import, describe, export, upgrade and delete keys.

#include "Command.h"
#include "CreationArguments.h"
#include "Failure.h"
#include "Files.h"
#include "Pem.h"
#include "Report.h"

namespace lumo::cli {

namespace {

using km::V4_0::Algorithm;
using km::V4_0::KeyCharacteristics;
using km::V4_0::KeyFormat;

constexpr uint64_t kUsualExponent = 65537;

// The result of generate, import and import-wrapped.
struct NewKey {
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    Bytes blob;
    KeyCharacteristics characteristics;

    // The callback of all three; the key must outlive it.
    auto callback() {
        return [this](ErrorCode code, const HidlBytes& made, const KeyCharacteristics& described) {
            error = code;
            blob = made;
            characteristics = described;
        };
    }
};

void requireKeyOutput(const Common& common, const std::string& path) {
    requireSeparateReport(common, path);
    requireNoTerminal(path);
}

// Older keys carry the older tag.
bool isRollbackResistant(const KeyCharacteristics& characteristics) {
    for (const KeyParameter& parameter : characteristics.hardwareEnforced) {
        const Tag tag = tagOf(parameter);
        if (tag == Tag::ROLLBACK_RESISTANCE || tag == kRollbackResistant) return true;
    }
    return false;
}

// Where a new key goes. It is opened before the keymaster is asked for anything, so that no key is
// made that there is no place for.
class KeyOutput {
  public:
    KeyOutput(const Common& common, const std::string& path)
        : common_(common), file_((requireKeyOutput(common, path), path), Output::Kind::secret) {}

    // A key that the keymaster remembers and that cannot be stored is deleted there again: nobody
    // could ever delete it later.
    void store(const sp<Device>& device, const NewKey& key) {
        try {
            file_.write(key.blob);
            file_.commit();
        } catch (const Failure&) {
            if (isRollbackResistant(key.characteristics)) {
                static_cast<void>(device->deleteKey(key.blob).isOk());
            }
            throw;
        }
        conclude(common_, describe(key.characteristics));
    }

    void store(const Bytes& blob) {
        file_.write(blob);
        file_.commit();
    }

  private:
    const Common& common_;
    Output file_;
};

void addKeyOutput(CLI::App& app, std::string& path) {
    addOutput(app, path, "key blob to write, readable by its owner alone");
}

Action declareGenerate(CLI::App& app, const Common& common) {
    struct Arguments {
        CreationArguments creation;
        std::string output;
    };
    const auto arguments = std::make_shared<Arguments>();
    arguments->creation.declare(app);
    addKeyOutput(app, arguments->output);
    return [arguments, &common] {
        KeyOutput output(common, arguments->output);
        std::vector<KeyParameter> parameters = arguments->creation.parameters();
        if (isAlgorithm(parameters, Algorithm::RSA) &&
            !arguments->creation.has(Tag::RSA_PUBLIC_EXPONENT)) {
            parameters.push_back(makeLong(Tag::RSA_PUBLIC_EXPONENT, kUsualExponent));
        }
        NewKey key;
        const sp<Device> device = connect(common.level());
        require("generate the key", device->generateKey(parameters, key.callback()), key.error);
        output.store(device, key);
    };
}

Action declareImport(CLI::App& app, const Common& common) {
    struct Arguments {
        CreationArguments creation;
        std::string format;
        std::string input;
        std::string output;
    };
    const auto arguments = std::make_shared<Arguments>();
    arguments->creation.declare(app);
    addFormat(app, arguments->format, "form of the key (pkcs8 for RSA and EC, else raw)");
    addInput(app, arguments->input, "key: PKCS#8 in PEM or DER, or the raw bytes");
    addKeyOutput(app, arguments->output);
    return [arguments, &common] {
        KeyOutput output(common, arguments->output);
        const std::vector<KeyParameter> parameters = arguments->creation.parameters();
        const KeyFormat format = importFormat(arguments->format, parameters);
        requireOtherFile("key", arguments->input, arguments->output);
        Bytes material = readSmallFile(arguments->input);
        if (format == KeyFormat::PKCS8) material = privateKeyDer(material);
        NewKey key;
        const sp<Device> device = connect(common.level());
        require("import the key", device->importKey(parameters, format, material, key.callback()),
                key.error);
        output.store(device, key);
    };
}

constexpr TagOption kUnwrappingOptions[] = {
    {"--padding", Tag::PADDING, "padding of the wrapping key's use"},
    {"--digest", Tag::DIGEST, "digest of the wrapping key's use"},
};

struct UnwrapArguments {
    KeyArguments wrapping;
    TagOptions unwrapping;
    MaskingKey masking_key;
    uint64_t password_sid = 0;
    uint64_t biometric_sid = 0;
    std::string input;
    std::string output;

    void declare(CLI::App& app) {
        wrapping.declare(app);
        unwrapping.declare(app, kUnwrappingOptions, "Options");
        unwrapping.declareAny(app);
        masking_key.declare(app);
        app.add_option("--password-sid", password_sid, "secure id of the user's password");
        app.add_option("--biometric-sid", biometric_sid, "secure id of the user's fingerprints");
        addInput(app, input, "wrapped key");
        addKeyOutput(app, output);
    }
};

Action declareImportWrapped(CLI::App& app, const Common& common) {
    const auto arguments = std::make_shared<UnwrapArguments>();
    arguments->declare(app);
    return [arguments, &common] {
        arguments->wrapping.requireOtherFile(arguments->output);
        requireOtherFile("wrapped key", arguments->input, arguments->output);
        KeyOutput output(common, arguments->output);
        const Bytes wrapping_key = arguments->wrapping.read();
        const Bytes wrapped = readSmallFile(arguments->input);
        NewKey key;
        const sp<Device> device = connect(common.level());
        require("import the wrapped key",
                device->importWrappedKey(
                    wrapped, wrapping_key, arguments->masking_key.bytes(),
                    joined(arguments->unwrapping.parameters(), arguments->wrapping.binding()),
                    arguments->password_sid, arguments->biometric_sid, key.callback()),
                key.error);
        output.store(device, key);
    };
}

Action declareCharacteristics(CLI::App& app, const Common& common) {
    const auto key = std::make_shared<KeyArguments>();
    key->declare(app);
    return [key, &common] {
        const Bytes blob = key->read();
        const sp<Device> device = connect(common.level());
        print(describe(characteristicsOf(device, blob, key->appId(), key->appData())), common.json);
    };
}

Action declareExport(CLI::App& app, const Common& common) {
    struct Arguments {
        KeyArguments key;
        std::string format = "x509";
        bool der = false;
        std::string output;
    };
    const auto arguments = std::make_shared<Arguments>();
    arguments->key.declare(app);
    addFormat(app, arguments->format, "form of the key; only x509 is supported");
    app.add_flag("--der", arguments->der, "write DER in place of PEM");
    addOutput(app, arguments->output, "public key to write");
    return [arguments, &common] {
        requireSeparateReport(common, arguments->output);
        arguments->key.requireOtherFile(arguments->output);
        if (arguments->der) requireNoTerminal(arguments->output);
        const Bytes blob = arguments->key.read();
        ErrorCode error = ErrorCode::UNKNOWN_ERROR;
        Bytes material;
        const sp<Device> device = connect(common.level());
        require("export the key",
                device->exportKey(parseFormat(arguments->format), blob, arguments->key.appId(),
                                  arguments->key.appData(),
                                  [&](ErrorCode code, const HidlBytes& exported) {
                                      error = code;
                                      material = exported;
                                  }),
                error);
        const std::string pem = toPem(kPublicKeyLabel, material);
        writeFile(arguments->output, arguments->der ? material : Bytes(pem.begin(), pem.end()));
        conclude(common, writtenTo(arguments->output));
    };
}

// The service refuses an empty set. Where no parameter is needed, one that upgrading ignores is
// sent.
std::vector<KeyParameter> upgradeParameters(const KeyArguments& key) {
    std::vector<KeyParameter> parameters = key.binding();
    if (parameters.empty()) parameters.push_back(makeBool(Tag::NO_AUTH_REQUIRED));
    return parameters;
}

Action declareUpgrade(CLI::App& app, const Common& common) {
    struct Arguments {
        KeyArguments key;
        std::string output;
    };
    const auto arguments = std::make_shared<Arguments>();
    arguments->key.declare(app);
    addKeyOutput(app, arguments->output);
    return [arguments, &common] {
        KeyOutput output(common, arguments->output);
        const Bytes blob = arguments->key.read();
        ErrorCode error = ErrorCode::UNKNOWN_ERROR;
        Bytes upgraded;
        const sp<Device> device = connect(common.level());
        require("upgrade the key",
                device->upgradeKey(blob, upgradeParameters(arguments->key),
                                   [&](ErrorCode code, const HidlBytes& bytes) {
                                       error = code;
                                       upgraded = bytes;
                                   }),
                error);
        // An empty blob says that the key is current; the old one is then the answer.
        output.store(upgraded.empty() ? blob : upgraded);
        conclude(common, {{"upgraded", !upgraded.empty()}, {"out", arguments->output}},
                 upgraded.empty() ? "the key is up to date" : "");
    };
}

// What deletion means for a key: a keymaster returns OK for anything, even for bytes that are no
// key.
enum class Deletion { kFinal, kFileRemains, kNoKey };

Deletion deletionOf(const sp<Device>& device, const Bytes& blob, const KeyArguments& key) {
    try {
        return isRollbackResistant(characteristicsOf(device, blob, key.appId(), key.appData()))
                   ? Deletion::kFinal
                   : Deletion::kFileRemains;
    } catch (const Failure& failure) {
        if (failure.status() != Exit::refused) throw;
        return Deletion::kNoKey;
    }
}

// Why this keymaster cannot open the key, as another level or state made it, say; empty where it
// can.
std::string whyUnopened(const sp<Device>& device, const Bytes& blob, const KeyArguments& key) {
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    uint64_t handle = 0;
    // With parameters for no key: what is said of the key itself comes first.
    device->begin(km::V4_0::KeyPurpose::SIGN, blob, key.binding(), {},
                  [&](ErrorCode code, const auto&, uint64_t begun) {
                      error = code;
                      handle = begun;
                  });
    if (error == ErrorCode::OK) device->abort(handle);
    if (error != ErrorCode::INVALID_KEY_BLOB) return "";
    try {
        require("open it", error);
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "";
}

Action declareDelete(CLI::App& app, const Common& common) {
    const auto key = std::make_shared<KeyArguments>();
    key->declare(app);
    return [key, &common] {
        const Bytes blob = key->read();
        const sp<Device> device = connect(common.level());
        const Deletion deletion = deletionOf(device, blob, *key);
        const std::string unopened =
            deletion == Deletion::kFinal ? whyUnopened(device, blob, *key) : "";
        require("delete the key", device->deleteKey(blob));
        const std::string& path = key->path();
        if (!unopened.empty()) {
            return conclude(common, {{"accepted", true}, {"final", nullptr}},
                            "the keymaster accepted this, but the key in " + path +
                                " may work elsewhere: this one " + unopened);
        }
        switch (deletion) {
            case Deletion::kFinal:
                return conclude(common, {{"accepted", true}, {"final", true}},
                                "the key is deleted for good; its file " + path + " is of no use");
            case Deletion::kFileRemains:
                return conclude(common, {{"accepted", true}, {"final", false}},
                                "the keymaster keeps nothing of this key, which has no rollback "
                                "resistance: it works until its file " +
                                    path + " is removed");
            case Deletion::kNoKey:
                return conclude(
                    common, {{"accepted", true}, {"final", nullptr}},
                    "the keymaster accepted this, but " + path +
                        " holds no key that it can read: nothing is known to be deleted");
        }
    };
}

constexpr char kGenerateNotes[] =
    "Without --user-secure-id the key is usable without a user (NO_AUTH_REQUIRED).\n"
    "BYTES are TEXT, hex:HEX or file:PATH; a DATE is 2030-01-31 or 2030-01-31T12:00:00Z.\n"
    "An existing output file is replaced. --json prints the characteristics.\n\n"
    "Examples:\n"
    "  lumokm generate --algorithm ec --curve p256 --purpose sign,verify --digest sha256 "
    "--out ec.key\n"
    "  lumokm generate --algorithm rsa --size 2048 --purpose sign --digest sha256 "
    "--padding pss,pkcs1-sign --out rsa.key\n"
    "  lumokm generate --algorithm aes --size 256 --purpose encrypt,decrypt --mode gcm "
    "--padding none --min-mac-length 128 --out aes.key\n"
    "  lumokm generate --algorithm hmac --size 256 --purpose sign,verify --digest sha256 "
    "--min-mac-length 128 --out hmac.key";

constexpr char kImportNotes[] =
    "Size, curve and exponent follow from the key; given, they must agree with it.\n"
    "Without --user-secure-id the key is usable without a user (NO_AUTH_REQUIRED).\n\n"
    "Examples:\n"
    "  lumokm import --algorithm ec --purpose sign --digest sha256 --in ec.pem --out ec.key\n"
    "  lumokm import --algorithm aes --purpose encrypt,decrypt --mode cbc --padding pkcs7 "
    "--in aes.bin --out aes.key";

constexpr char kImportWrappedNotes[] =
    "The wrapping key is an RSA key with purpose wrap, padding oaep and digest sha256.\n\n"
    "Example:\n"
    "  lumokm import-wrapped --key wrapping.key --padding oaep --digest sha256 "
    "--in wrapped.der --out aes.key";

}  // namespace

CommandGroup keyCommands() {
    return {"Keys",
            {{"generate", "Generate a key", kGenerateNotes, declareGenerate},
             {"import", "Import a key", kImportNotes, declareImport},
             {"import-wrapped", "Import a key that was wrapped for this device",
              kImportWrappedNotes, declareImportWrapped},
             {"characteristics", "Print what a key is and may be used for",
              "Example:\n  lumokm characteristics --key ec.key --json", declareCharacteristics},
             {"export", "Write a key's public key as PEM",
              "Example:\n  lumokm export --key ec.key --out ec.pem", declareExport},
             {"upgrade", "Bind a key to the current versions and patch levels",
              "A key that is up to date is copied.\n\n"
              "Example:\n  lumokm upgrade --key ec.key --out ec.key",
              declareUpgrade},
             {"delete", "Have the keymaster forget a key with rollback resistance",
              "Any other key lives in its file alone: to delete it, remove the file.\n"
              "--json: \"final\" is true, false, or null where no key opens.\n\n"
              "Example:\n  lumokm delete --key ec.key",
              declareDelete}}};
}

}  // namespace lumo::cli
