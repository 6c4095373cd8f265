#include "platform/base/Expected.h"

#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace vexo {
namespace {

Expected<int> parseDigit(char c) {
    if (c < '0' || c > '9')
        return Error(ErrorKind::InvalidData, std::string("not a digit: ") + c);
    return c - '0';
}

TEST(ExpectedTest, CarriesAValueOrAnError) {
    Expected<int> seven = parseDigit('7');
    ASSERT_TRUE(seven);
    EXPECT_EQ(*seven, 7);
    EXPECT_EQ(seven.valueOr(-1), 7);

    Expected<int> letter = parseDigit('x');
    ASSERT_FALSE(letter);
    EXPECT_EQ(letter.error(), Error(ErrorKind::InvalidData, "not a digit: x"));
    EXPECT_EQ(letter.valueOr(-1), -1);
}

TEST(ExpectedTest, MovesOnlyValuesOutAndAddsContextToErrors) {
    Expected<std::unique_ptr<int>> owned = std::make_unique<int>(3);
    std::unique_ptr<int> taken = std::move(owned).value();
    EXPECT_EQ(*taken, 3);

    Expected<void> done;
    EXPECT_TRUE(done);
    Expected<void> failed = Error(ErrorKind::NotFound, "no such file").withContext("/music/a.flac");
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().kind(), ErrorKind::NotFound);
    EXPECT_EQ(failed.error().message(), "/music/a.flac: no such file");
    EXPECT_EQ(describe(failed.error().kind()), "not found");
}

} // namespace
} // namespace vexo
