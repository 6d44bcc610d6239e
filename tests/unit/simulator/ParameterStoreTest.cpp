#include "simulator/ParameterStore.h"

#include <gtest/gtest.h>

namespace simulator {
namespace {

using Access = ParameterStore::Access;

constexpr ParameterKey kForce{96, 3};

class ParameterStoreTest : public testing::Test {
protected:
    void SetUp() override {
        store.Define(kForce, {50}, Access::SameLength);
        store.Define({19, 0}, {'H'}, Access::ReadOnly);
        store.Define({5, 0}, {}, Access::AnyLength);
    }

    ParameterStore store;
};

TEST_F(ParameterStoreTest, KeepsWrittenValues) {
    EXPECT_EQ(store.Write(kForce, {77}), ErrorCode::None);
    EXPECT_EQ(*store.Find(kForce), Bytes{77});
}

TEST_F(ParameterStoreTest, RejectsUnknownParameters) {
    EXPECT_EQ(store.Find({40, 0}), nullptr);
    EXPECT_EQ(store.Write({40, 0}, {1}), ErrorCode::NoSuchParameter);
}

TEST_F(ParameterStoreTest, RejectsAValueOfDifferentLength) {
    EXPECT_EQ(store.Write(kForce, {1, 2}), ErrorCode::BadLength);
    EXPECT_EQ(*store.Find(kForce), Bytes{50});
    EXPECT_EQ(store.Write({5, 0}, {1, 2, 3}), ErrorCode::None);
}

TEST_F(ParameterStoreTest, RejectsWritingAReadOnlyParameter) {
    EXPECT_EQ(store.Write({19, 0}, {'M'}), ErrorCode::ReadOnly);
}

TEST_F(ParameterStoreTest, PowerUpRestoresTheStoredValues) {
    store.Write(kForce, {77});
    store.PowerUp();
    EXPECT_EQ(*store.Find(kForce), Bytes{50});
    store.Write(kForce, {78});
    store.StoreRemanent();
    store.PowerUp();
    EXPECT_EQ(*store.Find(kForce), Bytes{78});
}

TEST_F(ParameterStoreTest, ADefinedValueSurvivesPowerUpAndKeepsItsAccess) {
    store.Define({19, 0}, {'X', 'Y'}, Access::AnyLength);
    store.PowerUp();
    EXPECT_EQ(*store.Find({19, 0}), (Bytes{'X', 'Y'}));
    EXPECT_EQ(store.Write({19, 0}, {'Z'}), ErrorCode::ReadOnly);
}

TEST_F(ParameterStoreTest, TheChecksumCoversOnlyWritableParameters) {
    const auto before = store.Checksum();
    store.Define({19, 0}, {'X'}, Access::ReadOnly);
    EXPECT_EQ(store.Checksum(), before);
    store.Write(kForce, {51});
    EXPECT_NE(store.Checksum(), before);
    store.Write(kForce, {50});
    EXPECT_EQ(store.Checksum(), before);
}

TEST(ParameterStoreChecksumTest, IsCrc32) {
    ParameterStore store;
    // Index 0x3132, subindex 0x33, length 6, "456789": computed with Python's zlib.crc32.
    store.Define({0x3132, 0x33}, {'4', '5', '6', '7', '8', '9'}, Access::SameLength);
    EXPECT_EQ(store.Checksum(), 0x463a1a56U);
}

}  // namespace
}  // namespace simulator
