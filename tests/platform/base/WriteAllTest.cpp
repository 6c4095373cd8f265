#include "platform/base/WriteAll.h"

#include <cerrno>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

using vexo::ErrorKind;
using vexo::writeAll;

namespace {

// A pipe takes at most its capacity per write while a reader drains it, so a buffer many
// times larger arrives only if every partial write is followed up.
TEST(WriteAllTest, ABufferLargerThanThePipeArrivesWholeAndInOrder) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    ::fcntl(ends[1], F_SETPIPE_SZ, 4096);
    std::string sent(1 << 20, '\0');
    for (std::size_t i = 0; i < sent.size(); ++i)
        sent[i] = static_cast<char>(i * 7 + i / 251);
    std::string received;
    std::thread reader([&] {
        char buffer[1000];
        for (ssize_t got; (got = ::read(ends[0], buffer, sizeof buffer)) > 0;)
            received.append(buffer, static_cast<std::size_t>(got));
    });
    const auto written = writeAll(ends[1], sent);
    ::close(ends[1]);
    reader.join();
    ::close(ends[0]);
    EXPECT_TRUE(written);
    EXPECT_EQ(received, sent);
}

TEST(WriteAllTest, AFailureSaysWhyAndKeepsErrno) {
    const struct {
        const char* path;
        int flags;
        int expectedErrno;
    } rows[] = {
        {"/dev/full", O_WRONLY, ENOSPC},
        {"/dev/null", O_RDONLY, EBADF},
    };
    for (const auto& row : rows) {
        const int fd = ::open(row.path, row.flags | O_CLOEXEC);
        ASSERT_GE(fd, 0) << row.path;
        const auto written = writeAll(fd, std::string_view("bytes"));
        const int error = errno;
        ::close(fd);
        ASSERT_FALSE(written) << row.path;
        EXPECT_EQ(written.error().kind(), ErrorKind::SystemFailure) << row.path;
        EXPECT_FALSE(written.error().message().empty()) << row.path;
        EXPECT_EQ(error, row.expectedErrno) << row.path;
    }
    EXPECT_TRUE(writeAll(-1, std::string_view())) << "nothing to write touches nothing";
}

} // namespace
