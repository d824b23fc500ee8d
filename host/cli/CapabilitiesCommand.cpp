// The command that finds out what a keymaster can do. No method tells; it is tried.

#include "Command.h"
#include "Examination.h"
#include "Operation.h"
#include "Report.h"
#include "ServiceSource.h"
#include "Version.h"

namespace lumo::cli {

namespace {

using km::V4_0::Algorithm;
using km::V4_0::BlockMode;
using km::V4_0::Digest;
using km::V4_0::EcCurve;
using km::V4_0::PaddingMode;

constexpr size_t kMostOperations = 64;  // more are not begun

template <typename... Values>
std::vector<uint32_t> numbers(Values... values) {
    return {static_cast<uint32_t>(values)...};
}

// A key of one algorithm without its size: what all of its keys are made with here.
struct AlgorithmRow {
    Algorithm algorithm;
    Tag size_tag;
    std::vector<uint32_t> sizes;  // or curves
    Parameters others;
};

const std::vector<AlgorithmRow>& algorithms() {
    static const std::vector<AlgorithmRow> rows = {
        {Algorithm::RSA,
         Tag::KEY_SIZE,
         {1024, 2048, 3072, 4096},
         {makeLong(Tag::RSA_PUBLIC_EXPONENT, 65537)}},
        {Algorithm::EC,
         Tag::EC_CURVE,
         numbers(EcCurve::P_224, EcCurve::P_256, EcCurve::P_384, EcCurve::P_521),
         {}},
        {Algorithm::AES, Tag::KEY_SIZE, {128, 192, 256}, {}},
        {Algorithm::TRIPLE_DES, Tag::KEY_SIZE, {168}, {}},
        {Algorithm::HMAC,
         Tag::KEY_SIZE,
         {64, 128, 256, 512, 1024},
         {makeParameter(Tag::DIGEST, Digest::SHA_2_256), makeEnum(Tag::MIN_MAC_LENGTH, 64)}},
    };
    return rows;
}

// What is tried with begin: one parameter takes each of the values, in the key and in the use.
struct OperationRow {
    Algorithm algorithm;
    KeyPurpose purpose;
    Tag tag;
    std::vector<uint32_t> values;
    Parameters key;   // besides
    Parameters uses;  // besides
};

const std::vector<OperationRow>& operations() {
    static const std::vector<uint32_t> digests =
        numbers(Digest::NONE, Digest::MD5, Digest::SHA1, Digest::SHA_2_224, Digest::SHA_2_256,
                Digest::SHA_2_384, Digest::SHA_2_512);
    static const Parameters sha256 = {makeParameter(Tag::DIGEST, Digest::SHA_2_256)};
    static const Parameters rsa = {makeParameter(Tag::KEY_SIZE, 2048),
                                   makeLong(Tag::RSA_PUBLIC_EXPONENT, 65537),
                                   makeParameter(Tag::DIGEST, Digest::SHA_2_256)};
    static const Parameters none = {makeParameter(Tag::PADDING, PaddingMode::NONE)};
    static const Parameters aes = {makeParameter(Tag::KEY_SIZE, 128),
                                   makeParameter(Tag::PADDING, PaddingMode::NONE),
                                   makeEnum(Tag::MIN_MAC_LENGTH, 128)};
    static const Parameters tag = joined(none, {makeEnum(Tag::MAC_LENGTH, 128)});
    static const std::vector<OperationRow> rows = {
        {Algorithm::RSA, KeyPurpose::SIGN, Tag::PADDING,
         numbers(PaddingMode::RSA_PSS, PaddingMode::RSA_PKCS1_1_5_SIGN), rsa, sha256},
        {Algorithm::RSA, KeyPurpose::DECRYPT, Tag::PADDING,
         numbers(PaddingMode::NONE, PaddingMode::RSA_OAEP, PaddingMode::RSA_PKCS1_1_5_ENCRYPT), rsa,
         sha256},
        {Algorithm::EC,
         KeyPurpose::SIGN,
         Tag::DIGEST,
         digests,
         {makeParameter(Tag::EC_CURVE, EcCurve::P_256)},
         {}},
        {Algorithm::AES, KeyPurpose::ENCRYPT, Tag::BLOCK_MODE,
         numbers(BlockMode::ECB, BlockMode::CBC, BlockMode::CTR, BlockMode::GCM), aes, tag},
        {Algorithm::TRIPLE_DES,
         KeyPurpose::ENCRYPT,
         Tag::BLOCK_MODE,
         numbers(BlockMode::ECB, BlockMode::CBC),
         {makeParameter(Tag::KEY_SIZE, 168), makeParameter(Tag::PADDING, PaddingMode::NONE)},
         none},
        {Algorithm::HMAC,
         KeyPurpose::SIGN,
         Tag::DIGEST,
         digests,
         {makeParameter(Tag::KEY_SIZE, 256), makeEnum(Tag::MIN_MAC_LENGTH, 64)},
         {makeEnum(Tag::MAC_LENGTH, 64)}},
    };
    return rows;
}

Parameters keyOf(Algorithm algorithm, const Parameters& others) {
    return joined({makeParameter(Tag::ALGORITHM, algorithm), makeBool(Tag::NO_AUTH_REQUIRED)},
                  others);
}

// A keymaster that cannot be reached must not look like one that can do nothing.
bool accepted(ErrorCode error) {
    if (error == ErrorCode::OK) return true;
    requireWayThere();
    if (readerStatusIn(error)) require("find out what the keymaster can do", error);
    return false;
}

Report keySizes(Examination& examination) {
    Report report = Report::object();
    for (const AlgorithmRow& row : algorithms()) {
        Report sizes = Report::array();
        for (const uint32_t size : row.sizes) {
            const Parameters key =
                keyOf(row.algorithm, joined(row.others, {makeEnum(row.size_tag, size)}));
            if (!accepted(examination.generate(key).code)) continue;
            if (row.size_tag == Tag::EC_CURVE) {
                sizes.push_back(nameOfValue(Tag::EC_CURVE, size));
            } else {
                sizes.push_back(size);
            }
        }
        report[toString(row.algorithm)] = sizes;
    }
    return report;
}

Report operationsOf(Examination& examination) {
    Report report = Report::object();
    for (const OperationRow& row : operations()) {
        Report names = Report::array();
        Bytes key;
        for (const uint32_t value : row.values) {
            const Parameters one = {makeEnum(row.tag, value)};
            const Parameters made =
                keyOf(row.algorithm,
                      joined(joined(row.key, one), {makeParameter(Tag::PURPOSE, row.purpose)}));
            uint64_t handle = 0;
            if (!accepted(examination.generate(made, &key).code)) continue;
            if (!accepted(examination.begin({row.purpose, key, joined(row.uses, one), {}, {}, {}},
                                            &handle))) {
                continue;
            }
            static_cast<void>(examination.device().abort(handle).isOk());
            names.push_back(nameOfValue(row.tag, value));
        }
        report[toString(row.algorithm)][toString(row.purpose)] = names;
    }
    return report;
}

// How many more operations can be begun now; all of them are aborted again.
size_t operationsAtOnce(Examination& examination) {
    const Parameters gcm = {makeParameter(Tag::BLOCK_MODE, BlockMode::GCM),
                            makeParameter(Tag::PADDING, PaddingMode::NONE),
                            makeEnum(Tag::MAC_LENGTH, 128)};
    std::vector<uint64_t> handles;
    uint64_t handle = 0;
    while (handles.size() < kMostOperations &&
           accepted(examination.begin({KeyPurpose::ENCRYPT, examination.aesKey(), gcm, {}, {}, {}},
                                      &handle))) {
        handles.push_back(handle);
    }
    for (const uint64_t begun : handles) {
        static_cast<void>(examination.device().abort(begun).isOk());
    }
    return handles.size();
}

Action declareCapabilities(CLI::App& /*app*/, const Common& common) {
    return [&common] {
        Examination examination(common.level());
        Report report = hardwareInfo(examination.device());
        report["client"] = LUMO_KEYMASTER_VERSION;
        describeWayThere(report, common.level());
        Report& limits = report["limits"];
        describeMessageLimits(limits, common.level());
        limits["updateBytes"] = Operation::kMaxUpdateBytes;
        limits["associatedDataBytes"] = Operation::kMaxAssociatedDataBytes;
        limits["challengeBytes"] = kMaxChallengeBytes;
        limits["operationsAtOnce"] = operationsAtOnce(examination);
        report["keySizes"] = keySizes(examination);
        report["operations"] = operationsOf(examination);
        print(report, common.json);
    };
}

constexpr char kCapabilitiesNotes[] =
    "Keys of each size are made and removed, which takes a few seconds, and operations begun and "
    "aborted: what is listed was accepted. Other clients may find no free operation meanwhile.\n\n"
    "Examples:\n"
    "  lumokm capabilities\n"
    "  lumokm capabilities --strongbox --json";

}  // namespace

CommandGroup capabilitiesCommands() {
    return {"Diagnosis",
            {{"capabilities", "Find out limits, key sizes and operations", kCapabilitiesNotes,
              declareCapabilities}}};
}

}  // namespace lumo::cli
