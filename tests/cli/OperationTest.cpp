// How data is cut into updates, against a device that consumes as little as it likes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "Failure.h"
#include "Operation.h"
#include "Shell.h"

namespace lumo::cli {
namespace {

using ::android::hardware::Void;
using namespace km::V4_0;

constexpr uint64_t kHandle = 0x8000000000000001;

// Gives back what it consumes, at most `appetite` bytes a call, and notes what it was handed.
class ModestDevice : public IKeymasterDevice {
  public:
    explicit ModestDevice(size_t appetite) : appetite_(appetite) {}

    size_t largest_input = 0;
    size_t associated_bytes = 0;
    ErrorCode finish_error = ErrorCode::OK;
    std::vector<uint64_t> aborted;

    Return<void> begin(KeyPurpose, const hidl_vec<uint8_t>&, const hidl_vec<KeyParameter>&,
                       const HardwareAuthToken&, begin_cb callback) override {
        callback(ErrorCode::OK, {}, kHandle);
        return Void();
    }
    Return<void> update(uint64_t handle, const hidl_vec<KeyParameter>& parameters,
                        const hidl_vec<uint8_t>& input, const HardwareAuthToken&,
                        const VerificationToken&, update_cb callback) override {
        EXPECT_EQ(handle, kHandle);
        for (const KeyParameter& parameter : parameters) associated_bytes += parameter.blob.size();
        largest_input = std::max(largest_input, input.size());
        const size_t taken = std::min(appetite_, input.size());
        callback(ErrorCode::OK, static_cast<uint32_t>(taken), {},
                 HidlBytes(input.data(), input.data() + taken));
        return Void();
    }
    Return<void> finish(uint64_t, const hidl_vec<KeyParameter>&, const hidl_vec<uint8_t>&,
                        const hidl_vec<uint8_t>&, const HardwareAuthToken&,
                        const VerificationToken&, finish_cb callback) override {
        callback(finish_error, {}, {});
        return Void();
    }
    Return<ErrorCode> abort(uint64_t handle) override {
        aborted.push_back(handle);
        return ErrorCode::OK;
    }

    // Operations need no more.
    using Blob = hidl_vec<uint8_t>;
    using Parameters = hidl_vec<KeyParameter>;
    MOCK_METHOD(Return<void>, getHardwareInfo, (getHardwareInfo_cb), (override));
    MOCK_METHOD(Return<void>, getHmacSharingParameters, (getHmacSharingParameters_cb), (override));
    MOCK_METHOD(Return<void>, computeSharedHmac,
                (const hidl_vec<HmacSharingParameters>&, computeSharedHmac_cb), (override));
    MOCK_METHOD(Return<void>, verifyAuthorization,
                (uint64_t, const Parameters&, const HardwareAuthToken&, verifyAuthorization_cb),
                (override));
    MOCK_METHOD(Return<void>, generateKey, (const Parameters&, generateKey_cb), (override));
    MOCK_METHOD(Return<void>, importKey, (const Parameters&, KeyFormat, const Blob&, importKey_cb),
                (override));
    MOCK_METHOD(Return<void>, importWrappedKey,
                (const Blob&, const Blob&, const Blob&, const Parameters&, uint64_t, uint64_t,
                 importWrappedKey_cb),
                (override));
    MOCK_METHOD(Return<void>, getKeyCharacteristics,
                (const Blob&, const Blob&, const Blob&, getKeyCharacteristics_cb), (override));
    MOCK_METHOD(Return<void>, exportKey,
                (KeyFormat, const Blob&, const Blob&, const Blob&, exportKey_cb), (override));
    MOCK_METHOD(Return<void>, attestKey, (const Blob&, const Parameters&, attestKey_cb),
                (override));
    MOCK_METHOD(Return<void>, upgradeKey, (const Blob&, const Parameters&, upgradeKey_cb),
                (override));
    MOCK_METHOD(Return<ErrorCode>, addRngEntropy, (const Blob&), (override));
    MOCK_METHOD(Return<ErrorCode>, deleteKey, (const Blob&), (override));
    MOCK_METHOD(Return<ErrorCode>, deleteAllKeys, (), (override));
    MOCK_METHOD(Return<ErrorCode>, destroyAttestationIds, (), (override));

  private:
    size_t appetite_;
};

TEST(Operation, OffersAgainWhatWasNotConsumedAndNeverMoreThan16384Bytes) {
    const test::Shell shell;
    std::string data(100001, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 31 >> 3);
    shell.write("data", data);
    for (const size_t appetite : {size_t{1000}, size_t{16383}, size_t{1} << 20}) {
        const sp<ModestDevice> device = new ModestDevice(appetite);
        Operation operation(device, {});
        Input associated(shell.path("data"));
        operation.authenticate(associated);
        Input input(shell.path("data"));
        std::string output;
        const Sink append = [&](const Bytes& bytes) { output.append(bytes.begin(), bytes.end()); };
        operation.process(input, append);
        operation.finish({}, {}, append);
        EXPECT_EQ(output, data) << appetite;
        EXPECT_EQ(device->largest_input, 16384U) << appetite;
        EXPECT_EQ(device->associated_bytes, data.size());
    }
}

TEST(Operation, IsAbortedOnceUnlessItHasEnded) {
    const test::Shell shell;
    shell.write("data", "text");
    const sp<ModestDevice> idle = new ModestDevice(0);
    {
        Operation operation(idle, {});
        Input input(shell.path("data"));
        EXPECT_THROW(operation.process(input, [](const Bytes&) {}), Failure)
            << "a device that consumes nothing would be asked for ever";
    }
    EXPECT_EQ(idle->aborted, std::vector<uint64_t>{kHandle});

    const sp<ModestDevice> refusing = new ModestDevice(1);
    refusing->finish_error = ErrorCode::VERIFICATION_FAILED;
    {
        Operation operation(refusing, {});
        try {
            operation.finish({}, {}, [](const Bytes&) {});
            ADD_FAILURE() << "finish was refused";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.status(), Exit::check);
        }
    }
    EXPECT_TRUE(refusing->aborted.empty());
}

}  // namespace
}  // namespace lumo::cli
