#include "log/log_file_sink.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace ovtx::log::log_perf::v4 {

namespace {

constexpr std::size_t kMinimumFields = 5;

// std::stoll and std::stoi with the failure texts the log's readers know.
std::int64_t toInt64(const std::string& text) {
    errno = 0;
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (end == text.c_str()) {
        throw std::invalid_argument("invalid stoll argument");
    }
    if (errno == ERANGE) {
        throw std::out_of_range("stoll argument out of range");
    }
    return value;
}

int toInt(const std::string& text) {
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str()) {
        throw std::invalid_argument("invalid stoi argument");
    }
    if (errno == ERANGE || value < INT32_MIN || value > INT32_MAX) {
        throw std::out_of_range("stoi argument out of range");
    }
    return static_cast<int>(value);
}

std::vector<std::string> splitFields(const std::string& line) {
    std::vector<std::string> fields;
    std::size_t start = 0;
    while (true) {
        const std::size_t end = line.find(';', start);
        fields.push_back(line.substr(start, end - start));
        if (end == std::string::npos) {
            return fields;
        }
        start = end + 1;
    }
}

// Reads one line without its line end (LF, or CR LF as the file holds it).
bool readLine(std::istream& in, std::string& line) {
    if (!std::getline(in, line)) {
        return false;
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return true;
}

HistoryEntry entryFromFields(const std::vector<std::string>& fields) {
    HistoryEntry entry;
    entry.formattedTime = fields[1];
    entry.timeMs = toInt64(fields[2]);
    entry.level = toInt(fields[3]);
    entry.text = fields[4];
    for (std::size_t index = 5; index < fields.size(); ++index) {
        entry.text += ';';
        entry.text += fields[index];
    }
    return entry;
}

std::string headerLine(std::uint32_t position) {
    char header[16];
    std::snprintf(header, sizeof header, "0x%.8X\r\n", position);
    return header;
}

// The header's write position, kept within [12, file size].
std::int64_t readWritePosition(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::int64_t position = LogFileSink::kFirstRecordPosition;
    in >> std::hex >> position;
    if (in.fail()) {
        position = LogFileSink::kFirstRecordPosition;
    }
    std::error_code error;
    const auto size = static_cast<std::int64_t>(std::filesystem::file_size(path, error));
    if (position > size || position < LogFileSink::kFirstRecordPosition) {
        position = LogFileSink::kFirstRecordPosition;
    }
    return position;
}

}  // namespace

void LogHistory::insert(std::int64_t sequence, HistoryEntry entry) {
    std::lock_guard lock(m_mutex);
    m_entries.insert_or_assign(sequence, std::move(entry));
    while (m_entries.size() > m_limit) {
        m_entries.erase(m_entries.begin());
    }
}

void LogHistory::clear() {
    std::lock_guard lock(m_mutex);
    m_entries.clear();
}

bool LogHistory::getRange(std::int64_t first, std::int64_t last, std::int64_t& firstOut,
                          std::int64_t& lastOut) {
    std::lock_guard lock(m_mutex);
    if (m_entries.empty()) {
        throw std::runtime_error("History is empty");
    }
    const std::int64_t lowest = m_entries.begin()->first;
    const std::int64_t highest = m_entries.rbegin()->first;
    first = first < 0 ? first + highest + 1 : first;
    last = last < 0 ? last + highest + 1 : last;
    firstOut = std::max(first, lowest);
    lastOut = std::min(last, highest);
    return lastOut >= firstOut;
}

std::vector<std::pair<std::int64_t, HistoryEntry>> LogHistory::getEntries(std::int64_t first,
                                                                          std::int64_t last) {
    std::lock_guard lock(m_mutex);
    std::vector<std::pair<std::int64_t, HistoryEntry>> entries;
    if (m_entries.empty()) {
        return entries;
    }
    const std::int64_t highest = m_entries.rbegin()->first;
    first = first < 0 ? first + highest + 1 : first;
    last = last < 0 ? last + highest + 1 : last;
    if (last < first) {
        return entries;
    }
    for (auto it = m_entries.lower_bound(first); it != m_entries.end() && it->first <= last; ++it) {
        entries.emplace_back(it->first, it->second);
    }
    return entries;
}

LogFileSink::LogFileSink(std::size_t historyLimit) : m_history(historyLimit) {}

void LogFileSink::SetThreshold(int threshold) {
    std::lock_guard lock(m_mutex);
    m_threshold = threshold;
}

void LogFileSink::SetFile(const std::string& path) {
    {
        std::lock_guard lock(m_mutex);
        if (path == m_fileName && m_stream.is_open() && m_stream.good()) {
            return;
        }
        m_fileName = path;
    }
    if (m_stream.is_open()) {
        m_stream.close();
    }
    if (path.empty()) {
        return;
    }
    if (!std::filesystem::exists(path)) {
        std::ofstream(path, std::ios::binary) << headerLine(0);
    }
    const std::int64_t position = readWritePosition(path);
    rebuildHistory(path, position);

    m_stream.clear();
    m_stream.open(path, std::ios::in | std::ios::out | std::ios::binary);
    if (!m_stream.is_open()) {
        throw std::ios_base::failure("cannot open " + path, std::error_code(errno, std::generic_category()));
    }
    m_stream.seekp(position);
}

// The file is a ring whose oldest lines start at the write position: read from there to the end,
// then from the first record up to the write position. The line at the write position is normally
// the remnant of an overwritten one, so it only gives the numbering and is not kept.
void LogFileSink::rebuildHistory(const std::string& path, std::int64_t writePosition) {
    m_history.clear();
    m_nextSequence = 0;
    std::string line;
    std::ifstream tail(path, std::ios::binary);
    tail.seekg(writePosition);
    while (readLine(tail, line)) {
        const auto fields = splitFields(line);
        if (fields.size() >= kMinimumFields) {
            m_nextSequence = toInt64(fields[0]);
            break;
        }
    }
    while (readLine(tail, line)) {
        const auto fields = splitFields(line);
        if (fields.size() >= kMinimumFields) {
            m_history.insert(m_nextSequence++, entryFromFields(fields));
        }
    }
    std::ifstream head(path, std::ios::binary);
    readLine(head, line);
    while (head.tellg() >= 0 && head.tellg() < writePosition && readLine(head, line)) {
        const auto fields = splitFields(line);
        if (fields.size() >= kMinimumFields) {
            m_history.insert(m_nextSequence++, entryFromFields(fields));
        }
    }
}

void LogFileSink::Log(int level, const Timestamp* when, const char* text) {
    std::string fileName;
    {
        std::lock_guard lock(m_mutex);
        if (level > m_threshold) {
            return;
        }
        fileName = m_fileName;
    }
    SetFile(fileName);

    HistoryEntry entry;
    entry.level = level;
    entry.timeMs = when->seconds * 1000 + when->milliseconds;
    entry.formattedTime = formatLogTime(*when);
    entry.text = text;

    const std::int64_t sequence = m_nextSequence++;
    m_stream << sequence << ';' << entry.formattedTime << ';' << entry.timeMs << ';' << level << ';' << text
             << "\r\n";
    m_stream.flush();
    if (m_fileSizeLimit != 0) {
        const std::streamoff end = m_stream.tellp();
        if (end >= 0 && static_cast<std::streamoff>(m_fileSizeLimit) < end) {
            m_stream.seekp(kFirstRecordPosition);
        }
    }
    writeHeader();
    m_history.insert(sequence, std::move(entry));
}

void LogFileSink::writeHeader() {
    const std::streamoff position = m_stream.tellp();
    m_stream.seekp(0);
    m_stream << headerLine(static_cast<std::uint32_t>(position));
    m_stream.seekp(position);
    m_stream.flush();
}

bool LogFileSink::GetRange(std::int64_t first, std::int64_t last, std::int64_t& firstOut,
                           std::int64_t& lastOut) {
    return m_history.getRange(first, last, firstOut, lastOut);
}

std::vector<std::pair<std::int64_t, HistoryEntry>> LogFileSink::GetEntries(std::int64_t first,
                                                                           std::int64_t last) {
    return m_history.getEntries(first, last);
}

}  // namespace ovtx::log::log_perf::v4
