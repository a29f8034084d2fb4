// Plain threads and the placing of a thread on a processor group.
//
// `Thread` owns one running thread and waits for it when destroyed, so whatever the body uses must
// outlive the `Thread`, or the body must have been told to stop before the destructor runs.
//
//   std::atomic<bool> stop{false};
//   {
//       Thread worker("sdi_worker", [&] { while (!stop) doWork(); });
//       ...
//       stop = true;
//   }  // joins here
//
// `placeCurrentThreadOnProcessorGroup` pins the calling thread to the processors of one NUMA node
// (the node of the processor it runs on), the Linux counterpart of a Windows processor group.
#pragma once

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "log/i_logger.h"

namespace ovtx::system::thread::v1 {

class Thread {
  public:
    // Starts `body` at once on a new thread. The name shows in `ps -L` and debuggers (the kernel
    // keeps its first 15 characters). An exception that leaves the body ends the process through
    // std::terminate, after "Thread <name> ended by an exception: <text>" on standard error.
    Thread(std::string name, std::function<void()> body);

    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Waits for the thread with no time limit.
    virtual ~Thread();

  private:
    std::thread m_thread;
};

// A NUMA node's processors: the Linux form of a processor group.
struct ProcessorGroup {
    int group = 0;                // node number
    std::vector<int> processors;  // logical processor numbers, ascending
};

// Parses a kernel cpu list such as "0-3,8,10-11" into processor numbers; malformed parts are
// skipped.
std::vector<int> parseCpuList(const std::string& text);

// The processor groups of the machine: one per NUMA node, or a single group 0 holding every
// online processor where the kernel exposes no nodes.
std::vector<ProcessorGroup> processorGroups();

// Gives the calling thread the affinity of the group that holds the processor it runs on. On a
// failure, logs "Thread group affinity failed Group=%d Proc=%d: %d" at level 1 with the group,
// the processor and errno when a logger is given; without one, the result is the only sign.
bool placeCurrentThreadOnProcessorGroup(log::i_logger::v0::ILogger* logger);

}  // namespace ovtx::system::thread::v1
