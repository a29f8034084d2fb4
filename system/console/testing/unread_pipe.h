// A named pipe that a test holds open for reading and reads only when it chooses: the standard
// error of a process whose reader has stalled.
//
//   UnreadPipe pipe(directory / "stderr.fifo");
//   pipe.fill();                  // from here on, a blocking write to it would wait
//   ... a process writes its standard error to pipe.path() ...
//   std::string held = pipe.drain();
#pragma once

#include <filesystem>
#include <string>

namespace ovtx::system::console::v1::testing {

class UnreadPipe {
  public:
    // Creates the pipe at `path`; a `capacity` above 0 sets its size in bytes (a page at least).
    explicit UnreadPipe(std::filesystem::path path, int capacity = 0);
    ~UnreadPipe();  // closes and removes the pipe
    UnreadPipe(const UnreadPipe&) = delete;
    UnreadPipe& operator=(const UnreadPipe&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    // A blocking write end that the object holds.
    int writeEnd() const { return m_writeEnd; }

    // Writes until the pipe takes no more.
    void fill();
    // Everything the pipe holds, read without waiting.
    std::string drain();

  private:
    std::filesystem::path m_path;
    int m_readEnd = -1;
    int m_writeEnd = -1;
};

}  // namespace ovtx::system::console::v1::testing
