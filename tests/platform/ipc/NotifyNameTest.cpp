#include "platform/ipc/NotifyName.h"

#include <set>
#include <string>

#include <gtest/gtest.h>

using vexo::ipc::NotifyName;

TEST(NotifyNameTest, ShortNamesAreEscapedByteForByte) {
    const struct {
        std::string name;
        std::string expected;
    } rows[] = {
        {"mixerStatus", "mixerStatus"},
        {"a-b_c.d", "a-b_c.d"},
        {"", "%"},
        {".", "%2E"},
        {"..", "%2E."},
        {".hidden", "%2Ehidden"},
        {"a/b", "a%2Fb"},
        {"100%", "100%25"},
        {"with space", "with%20space"},
        {"a~b", "a%7Eb"},
        {std::string("nul\0x", 5), "nul%00x"},
        {"é", "%C3%A9"},
        {std::string(NotifyName::kMaximumLength, 'k'), std::string(NotifyName::kMaximumLength, 'k')},
    };
    for (const auto& row : rows)
        EXPECT_EQ(NotifyName::fileName(row.name), row.expected) << row.name;
}

TEST(NotifyNameTest, LongNamesStayShortAndDistinct) {
    const std::string straddling = std::string(110, 'a') + "/" + std::string(20, 'b');
    const std::string longNames[] = {
        std::string(200, 'x'),  std::string(200, 'x') + "1",  std::string(200, 'x') + "2",
        std::string(5000, '/'), std::string(5000, '/') + "/", straddling,
    };
    std::set<std::string> fileNames;
    for (const std::string& name : longNames) {
        const std::string fileName = NotifyName::fileName(name);
        EXPECT_LE(fileName.size(), NotifyName::kMaximumLength) << name.size();
        EXPECT_NE(fileName.find('~'), std::string::npos) << name.size();
        EXPECT_EQ(fileName.find('/'), std::string::npos) << name.size();
        fileNames.insert(fileName);
    }
    EXPECT_EQ(fileNames.size(), std::size(longNames));
    EXPECT_EQ(NotifyName::fileName(straddling).substr(110, 1), "~") << "a cut never splits an escape";
}
