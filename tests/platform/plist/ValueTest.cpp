#include "platform/plist/Value.h"

#include <gtest/gtest.h>

using namespace vexo::plist;

TEST(ValueTest, Placeholder) {
    EXPECT_TRUE(Value().isNull());
}
