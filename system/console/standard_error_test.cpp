#include "system/console/standard_error.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace {

using ovtx::system::console::v1::LineWriterBuffer;
using ovtx::system::console::v1::NonBlockingWriter;

// A pipe whose reading end the test drains when it chooses; nobody else reads it.
class UnreadPipe {
  public:
    explicit UnreadPipe(int capacity = 0) {
        EXPECT_EQ(::pipe2(m_ends, O_CLOEXEC), 0);
        if (capacity > 0) {
            EXPECT_EQ(::fcntl(m_ends[1], F_SETPIPE_SZ, capacity), capacity);
        }
    }
    ~UnreadPipe() {
        ::close(m_ends[0]);
        ::close(m_ends[1]);
    }
    int writeEnd() const { return m_ends[1]; }

    // Fills the pipe through a non-blocking descriptor of the test's own.
    void fill() {
        const int own = ::open(("/proc/self/fd/" + std::to_string(m_ends[1])).c_str(), O_WRONLY | O_NONBLOCK);
        ASSERT_GE(own, 0);
        const std::string block(4096, 'f');
        while (::write(own, block.data(), block.size()) > 0) {
        }
        ::close(own);
    }

    // Everything the pipe holds.
    std::string drain() {
        const int flags = ::fcntl(m_ends[0], F_GETFL);
        ::fcntl(m_ends[0], F_SETFL, flags | O_NONBLOCK);
        std::string content;
        char buffer[4096];
        for (ssize_t n = 0; (n = ::read(m_ends[0], buffer, sizeof buffer)) > 0;) {
            content.append(buffer, static_cast<std::size_t>(n));
        }
        ::fcntl(m_ends[0], F_SETFL, flags);
        return content;
    }

  private:
    int m_ends[2] = {-1, -1};
};

TEST(NonBlockingWriterTest, FullPipe_DropsWithoutWaitingAndSaysSoOnceThereIsRoom) {
    UnreadPipe pipe;
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

TEST(NonBlockingWriterTest, LineCutShort_TheNoticeStartsOnALineOfItsOwn) {
    UnreadPipe pipe(4096);
    NonBlockingWriter writer(pipe.writeEnd());
    const std::string longLine = std::string(10000, 'a') + "\n";
    EXPECT_FALSE(writer.write(longLine));
    EXPECT_EQ(pipe.drain(), std::string(4096, 'a'));
    EXPECT_TRUE(writer.write("next\n"));
    EXPECT_EQ(pipe.drain(), "\nConsole output dropped: 5905 bytes\nnext\n");
}

TEST(NonBlockingWriterTest, FullSocket_DropsWithoutWaiting) {
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

TEST(NonBlockingWriterTest, ClosedDescriptor_DropsEverything) {
    UnreadPipe pipe;
    const int fd = ::dup(pipe.writeEnd());
    ::close(fd);
    NonBlockingWriter writer(fd);
    EXPECT_FALSE(writer.write("nowhere\n"));
    EXPECT_EQ(writer.droppedBytes(), 8u);
}

TEST(LineWriterBufferTest, Lines_GoOutWholeAtTheirEndOrAtAFlush) {
    UnreadPipe pipe;
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

TEST(LineWriterBufferTest, Loss_LeavesTheStreamGood) {
    UnreadPipe pipe;
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
