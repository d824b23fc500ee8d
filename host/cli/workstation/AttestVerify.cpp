// The command that judges an attestation.
#include <time.h>

#include <algorithm>

#include "Dates.h"
#include "Failure.h"
#include "Files.h"
#include "InspectCommands.h"
#include "inspect/AttestationChain.h"
#include "inspect/Values.h"

namespace lumo::cli {

namespace {

using inspect::Judged;
using inspect::Outcome;
using inspect::Verdict;
using inspect::Window;

struct Choice {
    const char* word;
    uint64_t value;
};
constexpr Choice kLevels[] = {{"software", 0}, {"tee", 1}, {"strongbox", 2}};
constexpr Choice kBootStates[] = {
    {"verified", 0}, {"self-signed", 1}, {"unverified", 2}, {"failed", 3}};
constexpr Choice kLocks[] = {{"no", 0}, {"yes", 1}};
constexpr Choice kVersions[] = {{"3", 3}, {"4", 4}};

struct Arguments {
    std::string chain;
    std::vector<std::string> roots;
    std::string at, challenge, application_id, boot_key, boot_hash, public_key, patchlevel;
    std::string level, version, boot_state, locked;
    bool rules = false;

    void declare(CLI::App& app);
    inspect::Expectations expectations() const;
};

template <size_t N>
std::string wordsOf(const Choice (&choices)[N]) {
    std::string words;
    for (const Choice& choice : choices)
        words += (words.empty() ? "" : "|") + std::string(choice.word);
    return words;
}

template <size_t N>
std::optional<uint64_t> valueOf(const char* option, const std::string& word,
                                const Choice (&choices)[N]) {
    if (word.empty()) return std::nullopt;
    for (const Choice& choice : choices) {
        if (word == choice.word) return choice.value;
    }
    throw Failure(Exit::usage,
                  std::string(option) + ": '" + word + "' is none of " + wordsOf(choices));
}

void Arguments::declare(CLI::App& app) {
    app.add_option("CHAIN", chain, "certificates, PEM or DER, the key's own first")
        ->required()
        ->type_name("");
    app.add_option("--root", roots, "certificates to trust; one has to end the chain")
        ->type_name("FILE")
        ->allow_extra_args(false);
    app.add_option("--at", at, "judge for this date in place of now")->type_name("DATE");
    app.add_flag("--rules", rules, "list the rules that hold, too");
    app.add_option("--challenge", challenge, "the challenge that was given")->type_name("BYTES");
    app.add_option("--application-id", application_id, "the application id that was given")
        ->type_name("BYTES");
    app.add_option("--security-level", level, "where the key has to live")
        ->type_name(wordsOf(kLevels));
    app.add_option("--attestation-version", version, "the version to be told")
        ->type_name(wordsOf(kVersions));
    app.add_option("--boot-state", boot_state, "what the boot loader found")
        ->type_name(wordsOf(kBootStates));
    app.add_option("--boot-locked", locked, "whether the boot loader is locked")
        ->type_name(wordsOf(kLocks));
    app.add_option("--boot-key", boot_key, "the key that verified the system")->type_name("BYTES");
    app.add_option("--boot-hash", boot_hash, "the hash of what was verified")->type_name("BYTES");
    app.add_option("--os-patchlevel", patchlevel, "the oldest that is accepted")
        ->type_name("YYYYMM");
    app.add_option("--public-key", public_key, "the key that has to be certified, PEM or DER")
        ->type_name("FILE");
}

std::optional<Bytes> bytesIf(const char* option, const std::string& text) {
    if (text.empty()) return std::nullopt;
    return parseBytes(option, text);
}

std::vector<Bytes> certificatesOf(const std::string& path) {
    const Bytes file = readSmallFile(path);
    std::string error;
    std::vector<Bytes> certificates = inspect::splitCertificates(Window(file), error);
    if (certificates.empty()) {
        throw Failure(Exit::usage, (path == "-" ? "standard input" : path) +
                                       " is no chain of certificates: " + error +
                                       "; lumokm inspect shows what it is");
    }
    return certificates;
}

uint64_t secondsOf(const std::string& date) {
    if (date.empty()) return static_cast<uint64_t>(time(nullptr));
    const auto milliseconds = parseDate(date);
    if (!milliseconds) {
        throw Failure(Exit::usage, "--at: '" + date +
                                       "' is not YYYY-MM-DD, YYYY-MM-DDThh:mm:ssZ or a number of "
                                       "milliseconds since 1970");
    }
    return *milliseconds / 1000;
}

inspect::Expectations Arguments::expectations() const {
    inspect::Expectations expected;
    expected.at_seconds = secondsOf(at);
    for (const std::string& path : roots) {
        for (Bytes& root : certificatesOf(path)) expected.roots.push_back(std::move(root));
    }
    expected.challenge = bytesIf("--challenge", challenge);
    expected.application_id = bytesIf("--application-id", application_id);
    expected.boot_key = bytesIf("--boot-key", boot_key);
    expected.boot_hash = bytesIf("--boot-hash", boot_hash);
    expected.level = valueOf("--security-level", level, kLevels);
    expected.version = valueOf("--attestation-version", version, kVersions);
    expected.boot_state = valueOf("--boot-state", boot_state, kBootStates);
    expected.locked = valueOf("--boot-locked", locked, kLocks);
    if (!public_key.empty()) {
        expected.public_key = inspect::publicKeyInfo(Window(readSmallFile(public_key)));
        if (expected.public_key->empty()) {
            throw Failure(Exit::usage, public_key + " is no public key; lumokm export writes one");
        }
    }
    if (!patchlevel.empty()) {
        expected.os_patchlevel = parseNumber(patchlevel, 999999);
        if (!expected.os_patchlevel || *expected.os_patchlevel < 100000) {
            throw Failure(Exit::usage,
                          "--os-patchlevel: '" + patchlevel + "' is not of the form YYYYMM");
        }
    }
    return expected;
}

size_t count(const Verdict& verdict, Outcome outcome) {
    return static_cast<size_t>(
        std::count_if(verdict.rules.begin(), verdict.rules.end(),
                      [outcome](const Judged& each) { return each.outcome == outcome; }));
}

std::string summaryOf(const Verdict& verdict) {
    const size_t broken = count(verdict, Outcome::broken);
    const size_t unreached = count(verdict, Outcome::notReached);
    std::string text = std::to_string(count(verdict, Outcome::holds)) + " rules hold";
    if (broken != 0) text += ", " + std::to_string(broken) + " broken";
    if (unreached != 0)
        text += ", " + std::to_string(unreached) + " could not be judged (--rules lists them)";
    return text;
}

Report reportOf(const Verdict& verdict, size_t certificates) {
    Report rules = Report::array();
    for (const Judged& each : verdict.rules) {
        rules.push_back({{"rule", each.rule->name},
                         {"says", each.rule->says},
                         {"outcome", inspect::nameOf(each.outcome)}});
    }
    return {{"accepted", verdict.good()},
            {"certificates", certificates},
            {"rules", rules},
            {"faults", describe(verdict.faults)}};
}

std::string textOf(const Verdict& verdict, bool with_all) {
    std::string text;
    for (const Judged& each : verdict.rules) {
        if (each.outcome != Outcome::broken && !with_all) continue;
        text += std::string(inspect::nameOf(each.outcome)) + ": " + each.rule->name + ": " +
                each.rule->says + "\n";
        for (const inspect::Fault& fault : verdict.faults) {
            if (fault.rule == each.rule->name) text += "    " + toText(fault) + "\n";
        }
    }
    return text + summaryOf(verdict) + "\n";
}

}  // namespace

Action declareAttestVerify(CLI::App& app, const Common& common) {
    const auto arguments = std::make_shared<Arguments>();
    arguments->declare(app);
    return [arguments, &common] {
        const inspect::Expectations expected = arguments->expectations();
        const std::vector<Bytes> chain = certificatesOf(arguments->chain);
        const Verdict verdict = inspect::judge(chain, expected);
        if (common.json) {
            print(reportOf(verdict, chain.size()), true);
        } else {
            const std::string text = textOf(verdict, arguments->rules);
            writeFile("-", Bytes(text.begin(), text.end()));
        }
        if (expected.roots.empty()) {
            remark(
                "lumokm: attest-verify: no --root was given, so nobody vouches for the last "
                "certificate");
        }
        if (!verdict.good()) throw ReportedFailure(Exit::check);
    };
}

const char kAttestVerifyNotes[] =
    "BYTES are TEXT, hex:HEX or file:PATH; a DATE is 2030-01-31, 2030-01-31T12:00:00Z or\n"
    "milliseconds since 1970. Bytes count from 0 in each certificate's DER, as openssl\n"
    "asn1parse counts them. Exit status 5 says that a rule is broken\n"
    "or could not be judged.\n\n"
    "Examples:\n"
    "  lumokm attest-verify chain.pem --root root.pem --challenge hex:0102\n"
    "  lumokm attest-verify chain.pem --rules --security-level strongbox";

}  // namespace lumo::cli
