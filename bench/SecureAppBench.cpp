// bench_secureapp: times of the secure application, from the bytes of a request to the bytes of the
// answer, beside what libcrypto needs for the same alone.
#include <benchmark/benchmark.h>
#include <openssl/bn.h>
#include <openssl/digest.h>
#include <openssl/ec_key.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/nid.h>
#include <openssl/rsa.h>

#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <thread>

#include "Params.h"
#include "Rows.h"
#include "Scratch.h"
#include "SecureAppClient.h"

namespace lumo::bench {
namespace {

const Bytes kMessage(64, 0x6d);
const Bytes kHmacKey(32, 0x6b);

const std::vector<keymaster_key_param_t> kSha256 = {
    keymaster_param_enum(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256),
};

std::vector<keymaster_key_param_t> ecKey() {
    return {
        keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_EC),
        keymaster_param_int(KM_TAG_KEY_SIZE, 256),
        keymaster_param_enum(KM_TAG_EC_CURVE, KM_EC_CURVE_P_256),
        keymaster_param_enum(KM_TAG_PURPOSE, KM_PURPOSE_SIGN),
        keymaster_param_enum(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256),
        keymaster_param_bool(KM_TAG_NO_AUTH_REQUIRED),
    };
}

std::vector<keymaster_key_param_t> rsaKey() {
    return {
        keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA),
        keymaster_param_int(KM_TAG_KEY_SIZE, 2048),
        keymaster_param_long(KM_TAG_RSA_PUBLIC_EXPONENT, 65537),
        keymaster_param_enum(KM_TAG_PURPOSE, KM_PURPOSE_SIGN),
        keymaster_param_enum(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256),
        keymaster_param_enum(KM_TAG_PADDING, KM_PAD_RSA_PKCS1_1_5_SIGN),
        keymaster_param_bool(KM_TAG_NO_AUTH_REQUIRED),
    };
}

std::vector<keymaster_key_param_t> hmacKey() {
    return {
        keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_HMAC),
        keymaster_param_int(KM_TAG_KEY_SIZE, 256),
        keymaster_param_enum(KM_TAG_PURPOSE, KM_PURPOSE_SIGN),
        keymaster_param_enum(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256),
        keymaster_param_int(KM_TAG_MIN_MAC_LENGTH, 256),
        keymaster_param_bool(KM_TAG_NO_AUTH_REQUIRED),
    };
}

SecureAppClient& client() {
    static SecureAppClient only("secureapp");
    return only;
}

// ---- libcrypto alone ----

bssl::UniquePtr<EVP_PKEY> makeEcKey() {
    bssl::UniquePtr<EC_KEY> ec(EC_KEY_new_by_curve_name(NID_X9_62_prime256v1));
    require(ec != nullptr && EC_KEY_generate_key(ec.get()) == 1, "libcrypto makes no EC key");
    bssl::UniquePtr<EVP_PKEY> key(EVP_PKEY_new());
    require(EVP_PKEY_set1_EC_KEY(key.get(), ec.get()) == 1, "libcrypto takes no EC key");
    return key;
}

bssl::UniquePtr<EVP_PKEY> makeRsaKey() {
    bssl::UniquePtr<RSA> rsa(RSA_new());
    bssl::UniquePtr<BIGNUM> exponent(BN_new());
    require(BN_set_word(exponent.get(), 65537) == 1 &&
                RSA_generate_key_ex(rsa.get(), 2048, exponent.get(), nullptr) == 1,
            "libcrypto makes no RSA key");
    bssl::UniquePtr<EVP_PKEY> key(EVP_PKEY_new());
    require(EVP_PKEY_set1_RSA(key.get(), rsa.get()) == 1, "libcrypto takes no RSA key");
    return key;
}

void sign(EVP_PKEY* key) {
    bssl::ScopedEVP_MD_CTX context;
    uint8_t signature[512];
    size_t size = sizeof(signature);
    require(
        EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) == 1 &&
            EVP_DigestSign(context.get(), signature, &size, kMessage.data(), kMessage.size()) == 1,
        "libcrypto does not sign");
}

Bytes hmac() {
    Bytes mac(32);
    unsigned size = 0;
    require(HMAC(EVP_sha256(), kHmacKey.data(), kHmacKey.size(), kMessage.data(), kMessage.size(),
                 mac.data(), &size) != nullptr,
            "libcrypto makes no HMAC");
    return mac;
}

// ---- Rows ----

void runEcSign(benchmark::State& state) {
    const Bytes key = client().generateKey(ecKey());
    for (auto _ : state) {
        client().finish(client().begin(KM_PURPOSE_SIGN, key, kSha256), kMessage);
    }
}

void runEcSignAlone(benchmark::State& state) {
    const auto key = makeEcKey();
    for (auto _ : state) sign(key.get());
}

void runEcGenerate(benchmark::State& state) {
    for (auto _ : state) client().generateKey(ecKey());
}

void runEcGenerateAlone(benchmark::State& state) {
    for (auto _ : state) makeEcKey();
}

void runRsaAttest(benchmark::State& state) {
    const Bytes key = client().generateKey(rsaKey());
    client().attestKey(key, kMessage);  // the first makes the attestation keys
    for (auto _ : state) client().attestKey(key, kMessage);
}

void runRsaSignAlone(benchmark::State& state) {
    const auto key = makeRsaKey();
    for (auto _ : state) sign(key.get());
}

void runHmac(benchmark::State& state) {
    static const std::vector<keymaster_key_param_t> kUse = {
        keymaster_param_enum(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256),
        keymaster_param_int(KM_TAG_MAC_LENGTH, 256),
    };
    const Bytes key = client().importRawKey(hmacKey(), kHmacKey);
    const auto run = [&] {
        return client().finish(client().begin(KM_PURPOSE_SIGN, key, kUse), kMessage);
    };
    require(run() == hmac(), "the HMACs differ");
    for (auto _ : state) run();
}

void runHmacAlone(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(hmac());
}

constexpr int64_t kRollbackEntries[] = {1, 10, 100, 1000, 10000, 100000};

// A secure application with a key of rollback resistance, while `entries` such keys are alive.
struct RollbackClient {
    explicit RollbackClient(size_t entries)
        : app("rollback-" + std::to_string(entries), "rollback_resistance = yes\n") {
        std::vector<keymaster_key_param_t> params = hmacKey();
        params.push_back(keymaster_param_bool(KM_TAG_ROLLBACK_RESISTANCE));
        key = app.importRawKey(params, kHmacKey);
        // The others: the registry is a list of SHA-256 values.
        const std::string registry = app.stateFolder() + "/rollback-registry";
        Bytes list = secureapp::readPrivateFile(registry).value();
        require(list.size() == 32, "the rollback registry has another shape");
        std::mt19937_64 random(1);
        while (list.size() < 32 * entries) list.push_back(static_cast<uint8_t>(random()));
        secureapp::writePrivateFile(registry, list);
    }

    void run() {
        static const std::vector<keymaster_key_param_t> kUse = {
            keymaster_param_enum(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256),
            keymaster_param_int(KM_TAG_MAC_LENGTH, 256),
        };
        app.abort(app.begin(KM_PURPOSE_SIGN, key, kUse));
    }

    SecureAppClient app;
    Bytes key;
};

std::map<int64_t, std::unique_ptr<RollbackClient>> makeRollbackClients() {
    std::map<int64_t, std::unique_ptr<RollbackClient>> clients;
    for (const int64_t entries : kRollbackEntries) {
        clients[entries] = std::make_unique<RollbackClient>(static_cast<size_t>(entries));
    }
    // A file that has just been written is read again at every begin.
    std::this_thread::sleep_for(std::chrono::seconds(3));
    return clients;
}

// Begins, and aborts, in a process that has begun once.
void runRollback(benchmark::State& state) {
    static const auto clients = makeRollbackClients();
    RollbackClient& client = *clients.at(state.range(0));
    client.run();
    for (auto _ : state) client.run();
}

// Begins while `open` operations are under way.
void runOperations(benchmark::State& state) {
    const Bytes key = client().generateKey(ecKey());
    std::vector<uint64_t> open;
    for (int64_t i = 1; i < state.range(0); ++i) {
        open.push_back(client().begin(KM_PURPOSE_SIGN, key, kSha256));
    }
    for (auto _ : state) client().abort(client().begin(KM_PURPOSE_SIGN, key, kSha256));
    for (const uint64_t operation : open) client().abort(operation);
}

void runGenerateWithParams(benchmark::State& state) {
    const auto params = coreParams(static_cast<size_t>(state.range(0)));
    for (auto _ : state) client().generateKey(params);
}

}  // namespace

void registerAll() {
    const auto add = [](const char* name, void (*run)(benchmark::State&)) {
        return benchmark::RegisterBenchmark(name, run);
    };
    add("ec-sign", runEcSign);
    add("ec-sign:libcrypto", runEcSignAlone);
    add("ec-generate", runEcGenerate);
    add("ec-generate:libcrypto", runEcGenerateAlone);
    add("rsa-attest", runRsaAttest);
    add("rsa-attest:libcrypto", runRsaSignAlone);
    add("hmac", runHmac);
    add("hmac:libcrypto", runHmacAlone);
    for (const int64_t entries : kRollbackEntries) {
        add("rollback-begin", runRollback)->Arg(entries);
    }
    for (const int64_t open : {1, 4, 8, 15}) add("open-operations", runOperations)->Arg(open);
    for (const int64_t params : {6, 15, 50, 100, 200}) {
        add("generate-with-params", runGenerateWithParams)->Arg(params);
    }
}

}  // namespace lumo::bench
