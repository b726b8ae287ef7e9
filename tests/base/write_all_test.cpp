#include "base/write_all.h"

#include "base/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <thread>

namespace {

struct Pipe {
    Pipe() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) == 0) {
            out = base::Descriptor(ends[0]);
            in = base::Descriptor(ends[1]);
        }
    }
    base::Descriptor out;
    base::Descriptor in;
};

TEST(WriteAll, WritesEverythingInPieces) {
    Pipe pipe;
    // Much larger than the buffer of a pipe.
    const std::string sent(1 << 20, 'x');
    std::string received;
    std::thread reader([&] {
        char piece[4096];
        for (ssize_t count; (count = ::read(pipe.out.get(), piece, sizeof piece)) > 0;)
            received.append(piece, static_cast<std::size_t>(count));
    });
    EXPECT_TRUE(base::writeAll(pipe.in.get(), sent));
    pipe.in.close();
    reader.join();
    EXPECT_EQ(received, sent);
}

TEST(WriteAll, ReportsAFullDisk) {
    const base::Descriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    EXPECT_FALSE(base::writeAll(full.get(), "text"));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_TRUE(base::writeAll(full.get(), ""));
}

TEST(SyncToDisk, ReportsAFailure) {
    const Pipe pipe;
    EXPECT_FALSE(base::syncToDisk(pipe.in.get()));
    EXPECT_EQ(errno, EINVAL);
    const base::Descriptor folder(::open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_TRUE(base::syncToDisk(folder.get()));
}

} // namespace
