#include "system/console/standard_error.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>

#include "system/console/testing/unread_pipe.h"

namespace {

using ovtx::system::console::v1::LineWriterBuffer;
using ovtx::system::console::v1::NonBlockingWriter;
using ovtx::system::console::v1::testing::UnreadPipe;

// Each case writes to a pipe of its own in the temporary directory.
class NonBlockingWriterTest : public ::testing::Test {
  protected:
    std::filesystem::path pipePath() const {
        return std::filesystem::path(::testing::TempDir()) /
               ("console_test_" + std::to_string(::getpid()) + "_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
    }
};
using LineWriterBufferTest = NonBlockingWriterTest;

TEST_F(NonBlockingWriterTest, FullPipe_DropsWithoutWaitingAndSaysSoOnceThereIsRoom) {
    UnreadPipe pipe(pipePath());
    NonBlockingWriter writer(pipe.writeEnd());
    pipe.fill();
    EXPECT_FALSE(writer.write("lost line\n"));
    EXPECT_FALSE(writer.write("another\n"));
    EXPECT_EQ(writer.droppedBytes(), 18u);
    // The shared descriptor keeps its blocking mode: only the writer's own open is non-blocking.
    EXPECT_EQ(::fcntl(pipe.writeEnd(), F_GETFL) & O_NONBLOCK, 0);

    pipe.drain();
    EXPECT_TRUE(writer.write("back\n"));
    EXPECT_EQ(pipe.drain(), "Console output dropped: 18 bytes\nback\n");
    EXPECT_TRUE(writer.write("next\n"));
    EXPECT_EQ(pipe.drain(), "next\n");
}

TEST_F(NonBlockingWriterTest, LineCutShort_TheNoticeStartsOnALineOfItsOwn) {
    UnreadPipe pipe(pipePath(), 4096);
    NonBlockingWriter writer(pipe.writeEnd());
    const std::string longLine = std::string(10000, 'a') + "\n";
    EXPECT_FALSE(writer.write(longLine));
    EXPECT_EQ(pipe.drain(), std::string(4096, 'a'));
    EXPECT_TRUE(writer.write("next\n"));
    EXPECT_EQ(pipe.drain(), "\nConsole output dropped: 5905 bytes\nnext\n");
}

TEST_F(NonBlockingWriterTest, FullSocket_DropsWithoutWaiting) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    NonBlockingWriter writer(ends[0]);
    const std::string block(65536, 's');
    int accepted = 0;
    while (writer.write(block) && accepted < 10000) {
        ++accepted;
    }
    EXPECT_LT(accepted, 10000) << "the socket never filled";
    EXPECT_GT(writer.droppedBytes(), 0u);
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(NonBlockingWriterTest, ClosedDescriptor_DropsEverything) {
    const int fd = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::close(fd);
    NonBlockingWriter writer(fd);
    EXPECT_FALSE(writer.write("nowhere\n"));
    EXPECT_EQ(writer.droppedBytes(), 8u);
}

TEST_F(LineWriterBufferTest, Lines_GoOutWholeAtTheirEndOrAtAFlush) {
    UnreadPipe pipe(pipePath());
    NonBlockingWriter writer(pipe.writeEnd());
    LineWriterBuffer buffer(writer);
    std::ostream out(&buffer);

    out << "Resolution: " << 1920 << "x" << 1080;
    EXPECT_EQ(pipe.drain(), "");
    out << "\nFramerate: 25";
    EXPECT_EQ(pipe.drain(), "Resolution: 1920x1080\n");
    out << " fps" << std::endl;
    EXPECT_EQ(pipe.drain(), "Framerate: 25 fps\n");
    out << "\rGenerated frame #7" << std::flush;
    EXPECT_EQ(pipe.drain(), "\rGenerated frame #7");

    const std::string endless(LineWriterBuffer::kLongestLine + 1, 'x');
    out << endless;
    EXPECT_EQ(pipe.drain(), endless);
}

TEST_F(LineWriterBufferTest, Loss_LeavesTheStreamGood) {
    UnreadPipe pipe(pipePath());
    NonBlockingWriter writer(pipe.writeEnd());
    LineWriterBuffer buffer(writer);
    std::ostream out(&buffer);
    pipe.fill();
    out << "dropped" << std::endl;
    EXPECT_TRUE(out.good());
    pipe.drain();
    out << "kept" << std::endl;
    EXPECT_EQ(pipe.drain(), "Console output dropped: 8 bytes\nkept\n");
}

}  // namespace
