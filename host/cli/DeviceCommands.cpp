// Commands about the device as a whole.

#include <android-base/properties.h>

#include "BootState.h"
#include "Command.h"
#include "Failure.h"
#include "Files.h"
#include "Report.h"
#include "ServiceSource.h"
#include "VerificationTokens.h"

namespace lumo::cli {

// getHardwareInfo has no error to report; a device of another level would not call back at all.
Report hardwareInfo(Device& device) {
    Report report = Report::object();
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    require("read the hardware's description",
            device.getHardwareInfo([&](SecurityLevel level, const auto& name, const auto& author) {
                error = ErrorCode::OK;
                report["securityLevel"] = toString(level);
                report["keymasterName"] = std::string(name);
                report["keymasterAuthorName"] = std::string(author);
            }),
            error);
    return report;
}

namespace {

// A keymaster that does not attest is described all the same.
void describeBoot(Report& report, const sp<Device>& device) {
    try {
        const auto boot = attestedBootState(device);
        if (!boot) return remark("bootState is left out: no root of trust is attested");
        report["bootState"] = toString(*boot);
        const std::vector<std::string> mismatches = bootPropertyMismatches(*boot);
        if (!mismatches.empty()) report["mismatches"] = mismatches;
    } catch (const Failure& failure) {
        remark(std::string("bootState is left out: ") + failure.what());
    }
}

Action declareInfo(CLI::App& /*app*/, const Common& common) {
    return [&common] {
        const sp<Device> device = connect(common.level());
        Report report = hardwareInfo(*device);
        describeWayThere(report, common.level());
        for (const char* name : {"ro.build.version.release", "ro.build.version.security_patch",
                                 "ro.vendor.build.security_patch"}) {
            report[name] = ::android::base::GetProperty(name, "");
        }
        describeBoot(report, device);
        print(report, common.json);
    };
}

Action declareHardwareInfo(CLI::App& /*app*/, const Common& common) {
    return [&common] { print(hardwareInfo(*connect41(common.level())), common.json); };
}

Action declareEarlyBootEnded(CLI::App& /*app*/, const Common& common) {
    return [&common] {
        require("end early boot", connect41(common.level())->earlyBootEnded());
        conclude(common, {{"earlyBoot", "ended"}}, "early boot has ended");
    };
}

Action declareDeviceLocked(CLI::App& app, const Common& common) {
    struct Arguments {
        bool password_only = false;
        std::string token;
    };
    const auto arguments = std::make_shared<Arguments>();
    app.add_flag("--password-only", arguments->password_only,
                 "only a password token unlocks again");
    addVerificationToken(app, arguments->token);
    return [arguments, &common] {
        const km::V4_0::VerificationToken token = readVerificationToken(arguments->token);
        require("lock the device",
                connect41(common.level())->deviceLocked(arguments->password_only, token));
        conclude(common, {{"device", "locked"}, {"passwordOnly", arguments->password_only}},
                 "the device is locked");
    };
}

Action declareAddEntropy(CLI::App& app, const Common& common) {
    const auto path = std::make_shared<std::string>();
    addInput(app, *path, "bytes to mix in");
    return [path, &common] {
        const Bytes entropy = readSmallFile(*path);
        require("add entropy", connect(common.level())->addRngEntropy(entropy));
        conclude(common, {{"bytes", entropy.size()}});
    };
}

std::string levelName(const Common& common) {
    return common.strongbox ? "StrongBox" : "the trusted environment";
}

Action declareDeleteAll(CLI::App& app, const Common& common) {
    app.add_flag("--yes", "do it; it cannot be undone")->required();
    return [&common] {
        require("delete all keys", connect(common.level())->deleteAllKeys());
        conclude(common, {{"accepted", true}, {"securityLevel", toString(common.level())}},
                 "keys of " + levelName(common) +
                     " with rollback resistance are deleted for good; any other key works until "
                     "its file is removed");
    };
}

Action declareDestroyIds(CLI::App& app, const Common& common) {
    app.add_flag("--yes", "do it; it cannot be undone")->required();
    return [&common] {
        require("destroy the device's ids", connect(common.level())->destroyAttestationIds());
        conclude(common, {{"destroyed", true}, {"securityLevel", toString(common.level())}},
                 levelName(common) +
                     " attests the device's ids no more; the other security level "
                     "has its own");
    };
}

constexpr char kInfoNotes[] = "Example:\n  lumokm info\n  lumokm info --strongbox --json";
constexpr char kHardwareInfoNotes[] = "Example:\n  lumokm hardware-info --strongbox";
constexpr char kPerBootNote[] =
    "It lasts until the secure application restarts. The one in the client's own process\n"
    "(LUMO_TRANSPORT=sim) ends with this command; one that runs by itself remembers.\n\n";

}  // namespace

CommandGroup deviceCommands() {
    static const std::string early_boot_notes =
        std::string(kPerBootNote) + "Example:\n  lumokm early-boot-ended";
    static const std::string locked_notes =
        std::string(kPerBootNote) + "Example:\n  lumokm device-locked --password-only";
    return {"Device",
            {{"info", "Describe the keymaster and how it is reached", kInfoNotes, declareInfo},
             {"hardware-info", "Describe the keymaster through its 4.1 interface",
              kHardwareInfoNotes, declareHardwareInfo},
             {"early-boot-ended", "Tell the keymaster that early boot has ended",
              early_boot_notes.c_str(), declareEarlyBootEnded},
             {"device-locked", "Tell the keymaster that the device was locked",
              locked_notes.c_str(), declareDeviceLocked},
             {"add-entropy", "Mix bytes into the random source",
              "Example:\n  head -c 32 /dev/urandom | lumokm add-entropy", declareAddEntropy},
             {"delete-all", "Delete all keys with rollback resistance at this security level",
              "Other keys live in their files alone: to delete one, remove its file.\n\n"
              "Example:\n  lumokm delete-all --yes",
              declareDeleteAll},
             {"destroy-ids", "Destroy the device's ids at this security level for good",
              "The trusted environment and StrongBox each attest ids of their own.\n\n"
              "Example:\n  lumokm destroy-ids --yes",
              declareDestroyIds}}};
}

}  // namespace lumo::cli
