#include <gtest/gtest.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include <list>

namespace {

using namespace ::android::hardware;
using Bytes = hidl_vec<uint8_t>;

TEST(HidlVec, BuildsFromEverySource) {
    const uint8_t raw[] = {1, 2, 3};
    const std::list<int> list = {1, 2, 3};
    for (const Bytes& vec : {Bytes{1, 2, 3}, Bytes(raw, raw + 3), Bytes(list.begin(), list.end()),
                             Bytes(std::vector<uint8_t>{1, 2, 3})}) {
        EXPECT_EQ(std::vector<uint8_t>(vec), std::vector<uint8_t>({1, 2, 3}));
    }
    EXPECT_EQ(Bytes(2), (Bytes{0, 0}));  // a count in parentheses, an element in braces
    EXPECT_EQ(Bytes{2}.size(), 1U);
    EXPECT_NE(Bytes(2), Bytes(3));
}

TEST(HidlVec, CopiesOfAViewAreDetached) {
    uint8_t outside[] = {1, 2, 3};
    Bytes view;
    view.setToExternal(outside, 3);
    EXPECT_EQ(view.data(), outside);

    const Bytes copy = view;
    Bytes resized = std::move(view);
    EXPECT_EQ(resized.data(), outside) << "a moved view stays a view";
    EXPECT_EQ(view.size(), 0U);  // NOLINT: the moved-from vector is empty here
    resized.resize(4);
    outside[0] = 9;
    EXPECT_EQ(copy, (Bytes{1, 2, 3}));
    EXPECT_EQ(resized, (Bytes{1, 2, 3, 0}));
    resized.resize(2);
    EXPECT_EQ(resized, (Bytes{1, 2}));

    hidl_vec<Bytes> owned = {resized};
    hidl_vec<Bytes> borrowed;
    borrowed.setToExternal(owned.data(), 1);
    borrowed.resize(2);
    owned.resize(2);
    EXPECT_EQ(owned, borrowed) << "the elements of a view are not moved away";
}

TEST(HidlVec, SurvivesAssignmentFromItself) {
    Bytes vec = {1, 2, 3};
    Bytes& same = vec;
    vec = same;
    vec = std::move(same);
    EXPECT_EQ(vec, (Bytes{1, 2, 3}));

    Bytes view;
    view.setToExternal(vec.data() + 1, 2);
    vec = view;
    EXPECT_EQ(vec, (Bytes{2, 3}));
    view.setToExternal(vec.data() + 1, 1);
    vec = std::move(view);
    EXPECT_EQ(vec, (Bytes{3}));
}

TEST(Return, GivesItsValueOrTheDefaultAndWantsErrorsLookedAt) {
    const Status dead = Status::fromStatusT(android::DEAD_OBJECT);
    Return<int> good = 5;
    EXPECT_EQ(good, 5);
    EXPECT_EQ(good.withDefault(6), 5);
    Return<int> bad = dead;
    EXPECT_TRUE(bad.isDeadObject());
    EXPECT_EQ(bad.withDefault(6), 6);
    Return<int> moved = std::move(bad);
    EXPECT_FALSE(moved.isOk());
    EXPECT_TRUE(bad.isOk());  // NOLINT: the source of a move is ok

    EXPECT_DEATH(Return<void>{dead}, "DEAD_OBJECT");
    EXPECT_DEATH(static_cast<void>(static_cast<int>(Return<int>(dead))), "DEAD_OBJECT");
}

}  // namespace
