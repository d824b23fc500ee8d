#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <thread>

#include "Client.h"
#include "Folder.h"
#include "TransportName.h"
#include "lumo/Transport.h"

static bool g_random_fails = false;
extern "C" ssize_t getrandom(void* place, size_t size, unsigned flags) {
    if (g_random_fails) return errno = EIO, -1;
    return ::syscall(SYS_getrandom, place, size, flags);
}

namespace lumo::test {
namespace {

using keymasterutils::KeymasterUtils;
using ::testing::HasSubstr;

constexpr auto kTee = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
constexpr auto kStrongBox = KM_SECURITY_LEVEL_STRONGBOX;

TEST(TransportName, MeansOneThingOrIsRefused) {
    struct {
        const char* text;
        const char* profile_or_path;  // null: refused
        const char* why;
    } const cases[] = {
        {"sim", "cbor", ""},
        {"sim:profile=cbor", "cbor", ""},
        {"sim:profile=legacy-3-encoding", "legacy-3-encoding", ""},
        {"unix:/run/x=y", "/run/x=y", ""},
        {"", nullptr, "unknown transport ''"},
        {"SIM", nullptr, "unknown transport 'SIM'"},
        {"sim:", nullptr, "profile=NAME"},
        {"sim:legacy-4", nullptr, "profile=NAME"},
        {"sim:profil=cbor", nullptr, "not 'profil=cbor'"},
        {"sim:profile=legacy-5", nullptr, "known are cbor, legacy-4, legacy-3, legacy-3-encoding"},
        {"sim:profile=cbor,profile=cbor", nullptr, "'profile' is given twice"},
        {"sim:fault=late:5@any#1/3,profile=legacy-4,fault=full@0x10f#2-,seed=7", "legacy-4", ""},
        {"unix:/run/x,fault=error@open", "/run/x", ""},
        {"sim:fault=slow@begin", nullptr, "no fault is called 'slow'; known are error"},
        {"sim:fault=late@start", nullptr, "no command is called 'start'; known are open"},
        {"sim:fault=error:1@begin", nullptr, "from -1000 to -1, not '1'"},
        {"sim:fault=short@open", nullptr, "open meets only"},
        {"sim:fault=late@begin#3-2", nullptr, "'#3-2' counts no calls"},
        {"sim:seed=x", nullptr, "seed takes a whole number"},
        {"unix", nullptr, "path"},
        {"unix:", nullptr, "path"},
        {"unix:,replay=no", nullptr, "path"},
        {"unix:/run/x,replay=no", "/run/x", ""},
        {"unix:/run/x,timeout=1", nullptr, "not 'timeout=1'"},
    };
    for (const auto& test : cases) {
        try {
            const auto name = transport::parseTransportName(test.text);
            ASSERT_NE(test.profile_or_path, nullptr) << test.text;
            const bool sim = name.kind == transport::TransportName::Kind::kSim;
            EXPECT_EQ(sim ? name.profile->name : name.path, test.profile_or_path);
        } catch (const transport::UsageError& error) {
            EXPECT_EQ(test.profile_or_path, nullptr) << error.what();
            EXPECT_THAT(error.what(), HasSubstr(test.why));
            EXPECT_THAT(error.what(), HasSubstr(std::string("LUMO_TRANSPORT='") + test.text));
        }
    }
}

class SimTransport : public ::testing::Test {
  protected:
    SimTransport() {
        ::setenv("LUMO_STATE_DIR", folder_.path().c_str(), 1);
        ::unsetenv("LUMO_TRANSPORT");
    }

    Folder folder_;
};

TEST_F(SimTransport, ObjectsOfOneLevelShareOneBoot) {
    Bytes generated;
    Bytes nonce;
    {
        KeymasterUtils first(kTee), second(kTee), strongbox(kStrongBox);
        ASSERT_EQ(sendCbor(first, kConfigure, kVersions).error, KM_ERROR_OK);
        const CborAnswer key = sendCbor(second, kGenerate, kHmacKey);
        ASSERT_EQ(key.error, KM_ERROR_OK);
        generated = key.body;
        EXPECT_EQ(sendCbor(first, kBegin, beginSign(generated)).error, KM_ERROR_OK);
        nonce = sendCbor(first, kSharing, {}).body;
        EXPECT_EQ(sendCbor(second, kSharing, {}).body, nonce);
        EXPECT_NE(sendCbor(strongbox, 0x2706, {}).body, nonce);
        EXPECT_EQ(sendCbor(strongbox, 0x2508, kHmacKey).error, KM_ERROR_KEYMASTER_NOT_CONFIGURED);
        // Responses stay until the next exchange; commands of the other level are unknown.
        EXPECT_EQ(sendCbor(strongbox, kGenerate, kHmacKey).error, KM_ERROR_UNIMPLEMENTED);
    }
    // The next boot: other nonce, same keys.
    KeymasterUtils later(kTee);
    EXPECT_NE(sendCbor(later, kSharing, {}).body, nonce);
    ASSERT_EQ(sendCbor(later, kConfigure, kVersions).error, KM_ERROR_OK);
    EXPECT_EQ(sendCbor(later, kBegin, beginSign(generated)).error, KM_ERROR_OK);
}

TEST_F(SimTransport, KeepsNoImportedKey) {
    const Bytes key(4000, 0x5A);
    KeymasterUtils transport(kTee);
    for (const uint32_t command : {0x210BU, 0x2117U}) {
        sendCbor(transport, command, key);
        keymaster_blob_t buffer = {nullptr, 0};
        ASSERT_EQ(transport.init(command, &buffer), KM_ERROR_OK);
        EXPECT_EQ(Bytes(buffer.data, buffer.data + key.size()), Bytes(key.size(), 0));
        sendRecord(transport, {command & 0xFFF, 0x5A5A5A5A, 0x5A5A5A5A});
        const uint8_t* shared = static_cast<uint8_t*>(transport.vaultlink_dev_init());
        EXPECT_EQ(Bytes(shared, shared + 12), Bytes(12, 0));
    }
}

// The library takes no lock: two threads in one object would mix their messages.
TEST_F(SimTransport, NoticesTwoThreadsInOneObject) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    KeymasterUtils transport(kTee);
    keymaster_blob_t mine, other, response;
    const auto take = [&] { static_cast<void>(transport.init(kSharing, &other)); };
    ASSERT_EQ(transport.init(kSharing, &mine), KM_ERROR_OK);
    mine.data_length = 0;
    EXPECT_DEATH((std::thread(take).join(), static_cast<void>(transport.sendCmd(mine, &response))),
                 "two threads are in one keymaster device object");
    // One after the other is nobody's mistake.
    std::thread(take).join();
    ASSERT_EQ(transport.init(kSharing, &mine), KM_ERROR_OK);
    mine.data_length = 0;
    EXPECT_EQ(transport.sendCmd(mine, &response), KM_ERROR_OK);
}

TEST_F(SimTransport, SharedRegionBoundsEveryRecord) {
    KeymasterUtils transport(kTee);
    uint8_t* shared = static_cast<uint8_t*>(transport.vaultlink_dev_init());
    const uint32_t size = KeymasterUtils::kSharedBufferBytes;
    EXPECT_EQ(transport.vaultlink_dev_init(), shared);
    uint8_t elsewhere[64] = {};
    EXPECT_EQ(transport.send_cmd(shared, 12, shared + 12, size - 11), KM_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(transport.send_cmd(shared, size + 1, shared, 4), KM_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(transport.send_cmd(elsewhere, 12, shared, 4), KM_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(transport.send_cmd(shared, 12, elsewhere, 64), KM_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(transport.send_cmd(shared, size, shared + size, 0),
              KM_ERROR_INSUFFICIENT_BUFFER_SPACE);

    uint8_t copy[4] = {9, 9, 9, 9};
    EXPECT_EQ(transport.km_memscpy(copy, 2, "abc", 3), 2U);
    EXPECT_EQ(transport.km_memscpy(copy + 2, 2, "c", 1), 1U);
    EXPECT_EQ(Bytes(copy, copy + 4), (Bytes{'a', 'b', 'c', 9}));
}

TEST_F(SimTransport, MakesFaultsOnCommand) {
    struct {
        const char* faults;
        std::array<int32_t, 5> results;  // configure, generate twice, sharing, date support
        int longer;                      // the first generated key than the second
    } const rows[] = {
        {"fault=error:-28@generateKey#2,fault=error@0x215", {0, 0, -28, 0, -49}, 0},
        {"fault=lost@any#1-2", {-49, -49, 0, 0, 0}, 0},
        {"fault=restart@generateKey#1", {0, -49, -64, 0, 0}, 0},
        {"fault=full@generateKey#1", {0, -45, 0, 0, 0}, 0},
        {"fault=short:3@generateKey#1", {0, 0, 0, 0, 0}, -3},
        {"fault=long@generateKey#1,fault=garbled@any", {0, 0, 0, 0, 0x20000000}, 16},
        {"fault=late:1@any,fault=short@getDateSupport", {0, 0, 0, 0, 0}, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.faults);
        const Folder state;
        ::setenv("LUMO_STATE_DIR", state.path().c_str(), 1);
        useTransport(std::string("sim:seed=5,") + row.faults);
        KeymasterUtils object(kTee);
        const int32_t configured = sendCbor(object, kConfigure, kVersions).error;
        const CborAnswer first = sendCbor(object, kGenerate, kHmacKey);
        const CborAnswer second = sendCbor(object, kGenerate, kHmacKey);
        const int32_t shared = sendCbor(object, kSharing, {}).error;
        const int32_t dates = sendRecord(object, {kDateSupport, 0, 0});
        EXPECT_EQ(row.results, (std::array{configured, int32_t{first.error}, int32_t{second.error},
                                           shared, dates}));
        if (first.error != 0 || second.error != 0) continue;
        EXPECT_EQ(static_cast<int>(first.body.size()) - static_cast<int>(second.body.size()),
                  row.longer);
    }
}

TEST_F(SimTransport, ReportsFaultsBeforeAnyCommand) {
    g_random_fails = true;
    EXPECT_THAT(checkTransport(kTee).message, HasSubstr("gives no random bytes"));
    g_random_fails = false;
    EXPECT_EQ(checkTransport(kTee).kind, TransportStatus::ok);

    useTransport("sim:profile=no");
    const TransportStatus usage = checkTransport(kTee);
    EXPECT_EQ(usage.kind, TransportStatus::usage);
    EXPECT_THAT(usage.message, HasSubstr("unknown profile 'no'"));
    KeymasterUtils refused(kTee);
    EXPECT_EQ(sendCbor(refused, kSharing, {}).error, KM_ERROR_SECURE_HW_COMMUNICATION_FAILED);
    EXPECT_EQ(sendRecord(refused, {kDateSupport, 0, 0}), KM_ERROR_SECURE_HW_COMMUNICATION_FAILED);

    useTransport("unix:" + (folder_ / "nobody"));
    EXPECT_THAT(checkTransport(kStrongBox).message, HasSubstr("is the daemon running?"));

    useTransport("sim");
    ::chmod((folder_ / "world.conf").c_str(), 0644);
    EXPECT_THAT(checkTransport(kTee).message, HasSubstr("world.conf is open to other users"));
    KeymasterUtils shut(kTee);
    EXPECT_EQ(shut.hsm_init(), KM_ERROR_SECURE_HW_ACCESS_DENIED);
    EXPECT_EQ(lastTransportFailure().kind, TransportStatus::state);
    EXPECT_EQ(lastExchangeReason().code, KM_ERROR_SECURE_HW_ACCESS_DENIED);
    useTransport("sim");
    ::chmod((folder_ / "world.conf").c_str(), 0600);
    EXPECT_EQ(sendCbor(shut, kSharing, {}).error, KM_ERROR_OK);
    EXPECT_EQ(lastTransportFailure().kind, TransportStatus::ok);
}

}  // namespace
}  // namespace lumo::test
