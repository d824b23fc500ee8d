// The command that says what the boot loader would say.
#include <KeymasterHalDevice.h>
#include <lumo/Transport.h>

#include <algorithm>
#include <array>

#include "Failure.h"
#include "RehearsalCommands.h"
#include "Report.h"
#include "WorkstationServices.h"

namespace lumo::cli {

namespace {

constexpr size_t kBootKeyBytes = 32;

struct Color {
    const char* word;
    _km_boot_state_color_t color;
    const char* attested;
};

constexpr Color kColors[] = {
    {"green", KM_BOOT_STATE_GREEN, "verified"},
    {"yellow", KM_BOOT_STATE_YELLOW, "self-signed"},
    {"orange", KM_BOOT_STATE_ORANGE, "unverified"},
    {"red", KM_BOOT_STATE_RED, "failed"},
};

const Color& colorNamed(const std::string& word) {
    for (const Color& color : kColors) {
        if (word == color.word) return color;
    }
    throw Failure(Exit::usage, "--color: '" + word + "' is not green, yellow, orange or red");
}

Action declareSetRootOfTrust(CLI::App& app, const Common& common) {
    struct Arguments {
        std::string key;
        std::string color = "green";
        bool unlocked = false;
        uint32_t version = 0;
        uint32_t patchlevel = 0;
    };
    const auto arguments = std::make_shared<Arguments>();
    app.add_option("--boot-key", arguments->key, "key that verified the system, 32 bytes")
        ->required()
        ->type_name("BYTES");
    app.add_option("--color", arguments->color, "what the verification found")
        ->type_name("green|yellow|orange|red")
        ->capture_default_str();
    app.add_flag("--unlocked", arguments->unlocked, "the boot loader is unlocked");
    app.add_option("--os-version", arguments->version,
                   "as the boot loader knows it, such as 110000")
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--os-patchlevel", arguments->patchlevel, "the same, such as 202012")
        ->type_name("N")
        ->capture_default_str();
    return [arguments, &common] {
        Bytes key = parseBytes("--boot-key", arguments->key);
        if (key.size() != kBootKeyBytes) {
            throw Failure(Exit::usage, "--boot-key: it has " + std::to_string(key.size()) +
                                           " bytes and needs " + std::to_string(kBootKeyBytes) +
                                           "; give hex:HEX or file:PATH");
        }
        const Color& color = colorNamed(arguments->color);
        const auto level = static_cast<keymaster_security_level_t>(common.level());
        // No service object: that would configure the keymaster, which comes later in a boot.
        requireFittingOptions();
        const TransportCheck opened(level);
        requireRehearsed("reach the secure application",
                         opened.status().kind == TransportStatus::ok
                             ? KM_ERROR_OK
                             : KM_ERROR_SECURE_HW_COMMUNICATION_FAILED);
        remarkOnNewDevice();
        keymasterdevice::KeymasterHalDevice device(level);
        requireRehearsed("set the root of trust",
                         device.SetRot(key.data(), nullptr, !arguments->unlocked, key.data(),
                                       color.color, arguments->version, arguments->patchlevel));
        conclude(common,
                 {{"verifiedBootKey", toHex(key)},
                  {"locked", !arguments->unlocked},
                  {"verifiedBootState", color.attested}},
                 std::string("the root of trust is set: ") +
                     (arguments->unlocked ? "unlocked, " : "locked, ") + color.attested);
    };
}

constexpr char kNotes[] =
    "Once in a boot, before any key is made or used. Keys are bound to the root of trust, and\n"
    "those of another one cannot be opened. It lasts until the secure application restarts;\n"
    "one in the client's own process (LUMO_TRANSPORT=sim) ends with this command.\n"
    "BYTES are TEXT, hex:HEX or file:PATH.\n\n"
    "Example:\n"
    "  lumokm set-root-of-trust --boot-key file:boot.key --color green";

}  // namespace

Command setRootOfTrustCommand() {
    return {"set-root-of-trust", "Tell the keymaster what the boot loader found", kNotes,
            declareSetRootOfTrust};
}

}  // namespace lumo::cli
