#include "system/thread/thread.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace ovtx::system::thread::v1 {

namespace {

constexpr std::size_t kMaxThreadNameLength = 15;

// A body that lets an exception out has lost its work half-way; a daemon that went on without
// the thread would look alive and do nothing. So the process ends through std::terminate (exit
// code 3 under the daemon's fault handling), after naming the thread and the failure. Threads
// that must survive a failing job (worker pools, the listener) catch inside their body.
void runOrTerminate(const std::string& name, const std::function<void()>& body) {
    try {
        body();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "Thread %s ended by an exception: %s\n", name.c_str(), e.what());
        std::terminate();
    } catch (...) {
        std::fprintf(stderr, "Thread %s ended by an unknown exception\n", name.c_str());
        std::terminate();
    }
}

std::string readFirstLine(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

int nodeNumberOf(const std::filesystem::path& entry) {
    const std::string name = entry.filename().string();
    if (name.rfind("node", 0) != 0 || name.size() == 4) {
        return -1;
    }
    try {
        std::size_t used = 0;
        const int number = std::stoi(name.substr(4), &used);
        return used == name.size() - 4 ? number : -1;
    } catch (const std::exception&) {
        return -1;
    }
}

}  // namespace

Thread::Thread(std::string name, std::function<void()> body)
    : m_thread([name, body = std::move(body)] {
          const std::string shortName = name.substr(0, kMaxThreadNameLength);
          pthread_setname_np(pthread_self(), shortName.c_str());
          runOrTerminate(name, body);
      }) {}

Thread::~Thread() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

std::vector<int> parseCpuList(const std::string& text) {
    std::vector<int> processors;
    std::stringstream parts(text);
    std::string part;
    while (std::getline(parts, part, ',')) {
        int first = 0;
        int last = 0;
        char dash = 0;
        std::istringstream range(part);
        if (!(range >> first) || first < 0) {
            continue;
        }
        last = first;
        if (range >> dash && (dash != '-' || !(range >> last) || last < first)) {
            continue;
        }
        for (int processor = first; processor <= last; ++processor) {
            processors.push_back(processor);
        }
    }
    return processors;
}

std::vector<ProcessorGroup> processorGroups() {
    std::vector<ProcessorGroup> groups;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/sys/devices/system/node", error)) {
        const int node = nodeNumberOf(entry.path());
        if (node < 0) {
            continue;
        }
        ProcessorGroup group{node, parseCpuList(readFirstLine(entry.path() / "cpulist"))};
        if (!group.processors.empty()) {
            groups.push_back(std::move(group));
        }
    }
    if (groups.empty()) {
        groups.push_back({0, parseCpuList(readFirstLine("/sys/devices/system/cpu/online"))});
    }
    std::sort(groups.begin(), groups.end(), [](const auto& a, const auto& b) { return a.group < b.group; });
    return groups;
}

bool placeCurrentThreadOnProcessorGroup(log::i_logger::v0::ILogger* logger) {
    const int processor = sched_getcpu();
    const auto groups = processorGroups();
    const ProcessorGroup* chosen = &groups.front();
    for (const auto& group : groups) {
        if (std::find(group.processors.begin(), group.processors.end(), processor) !=
            group.processors.end()) {
            chosen = &group;
        }
    }
    cpu_set_t mask;
    CPU_ZERO(&mask);
    for (int member : chosen->processors) {
        if (member < CPU_SETSIZE) {
            CPU_SET(member, &mask);
        }
    }
    int error = 0;
    if (chosen->processors.empty()) {
        error = EINVAL;
    } else if (sched_setaffinity(0, sizeof mask, &mask) != 0) {
        error = errno;
    }
    if (error != 0 && logger != nullptr) {
        logger->Log(1, "Thread group affinity failed Group=%d Proc=%d: %d", chosen->group, processor, error);
    }
    return error == 0;
}

}  // namespace ovtx::system::thread::v1
