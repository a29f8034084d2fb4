#include "log/log_file_sink.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace ovtx::log::log_perf::v4 {

namespace {

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

// A record line split at its first four ";": five fields, the last one the text, which may itself
// hold ";". Nothing for a line with fewer fields.
struct RecordFields {
    std::string_view sequence, formattedTime, timeMs, level, text;
};

std::optional<RecordFields> splitRecord(std::string_view line) {
    std::string_view fields[4];
    for (std::string_view& field : fields) {
        const std::size_t end = line.find(';');
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        field = line.substr(0, end);
        line.remove_prefix(end + 1);
    }
    return RecordFields{fields[0], fields[1], fields[2], fields[3], line};
}

// Reads one line without its line end (LF, or CR LF as the file holds it); `consumed`, if given,
// grows by the bytes the line took in the stream.
bool readLine(std::istream& in, std::string& line, std::int64_t* consumed = nullptr) {
    if (!std::getline(in, line)) {
        return false;
    }
    if (consumed != nullptr) {
        *consumed += static_cast<std::int64_t>(line.size()) + (in.eof() ? 0 : 1);
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return true;
}

HistoryEntry entryFromRecord(const RecordFields& fields) {
    HistoryEntry entry;
    entry.formattedTime = fields.formattedTime;
    entry.timeMs = toInt64(std::string(fields.timeMs));
    entry.level = toInt(std::string(fields.level));
    entry.text = fields.text;
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

void createEmptyFile(const std::string& path) {
    std::ofstream(path, std::ios::binary) << headerLine(0);
}

std::string readRange(std::ifstream& in, std::int64_t from, std::int64_t to) {
    std::string bytes(static_cast<std::size_t>(std::max<std::int64_t>(0, to - from)), '\0');
    in.clear();
    in.seekg(from);
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(std::max<std::streamsize>(0, in.gcount())));
    return bytes;
}

// The newest lines of a ring file, at most `keep` bytes of them, oldest first: the bytes before the
// write position, and when they are too few, the end of the file before them. The first line of
// what is read may be cut and is left out.
std::string newestLines(const std::string& path, std::int64_t position, std::int64_t size,
                        std::int64_t keep) {
    std::ifstream in(path, std::ios::binary);
    const std::int64_t fromHead = std::min(keep, position - LogFileSink::kFirstRecordPosition);
    const std::int64_t fromTail = std::min(keep - fromHead, size - position);
    std::string lines = readRange(in, size - fromTail, size) + readRange(in, position - fromHead, position);
    const std::size_t firstLineEnd = lines.find('\n');
    lines.erase(0, firstLineEnd == std::string::npos ? lines.size() : firstLineEnd + 1);
    return lines;
}

// "20261123T152612Z"
std::string utcStamp() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
    return text;
}

// Renames `path` to "<path>.<kind>-<UTC time>", with "-2", "-3" ... where that name is taken.
std::string moveAside(const std::string& path, const std::string& kind) {
    const std::string base = path + "." + kind + "-" + utcStamp();
    std::string aside = base;
    for (int attempt = 2; std::filesystem::exists(aside); ++attempt) {
        aside = base + "-" + std::to_string(attempt);
    }
    std::error_code error;
    std::filesystem::rename(path, aside, error);
    if (error) {
        throw std::runtime_error("Log file " + path + " could not be moved to " + aside + ": " +
                                 error.message());
    }
    return aside;
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
        createEmptyFile(path);
    }
    std::vector<std::string> notices;
    if (m_fileSizeLimit != 0) {
        if (std::string notice = replaceOversizeFile(path); !notice.empty()) {
            notices.push_back(std::move(notice));
        }
    }
    std::int64_t position = readWritePosition(path);
    try {
        rebuildHistory(path, position);
    } catch (const std::logic_error& e) {  // a number field that is no number, or out of range
        notices.push_back(replaceUnreadableFile(path, e.what()));
        position = kFirstRecordPosition;
        rebuildHistory(path, position);
    }

    m_stream.clear();
    m_stream.open(path, std::ios::in | std::ios::out | std::ios::binary);
    if (!m_stream.is_open()) {
        throw std::ios_base::failure("cannot open " + path, std::error_code(errno, std::generic_category()));
    }
    m_stream.seekp(position);
    for (const std::string& notice : notices) {
        report(notice);
    }
}

std::string LogFileSink::replaceOversizeFile(const std::string& path) {
    std::error_code error;
    const auto size = static_cast<std::int64_t>(std::filesystem::file_size(path, error));
    if (error || size <= static_cast<std::int64_t>(m_fileSizeLimit) + kLimitAllowance) {
        return {};
    }
    const std::string kept = newestLines(path, readWritePosition(path), size, m_fileSizeLimit / 2);
    const std::string aside = moveAside(path, "oversize");
    std::ofstream(path, std::ios::binary)
        << headerLine(static_cast<std::uint32_t>(kFirstRecordPosition + kept.size())) << kept;
    return "Log file " + path + " held " + std::to_string(size) + " bytes, over its limit of " +
           std::to_string(m_fileSizeLimit) + ": moved it to " + aside + " and kept its newest lines";
}

std::string LogFileSink::replaceUnreadableFile(const std::string& path, const std::string& reason) {
    const std::string aside = moveAside(path, "corrupt");
    createEmptyFile(path);
    return "Log file " + path + " could not be read (" + reason + "): moved it to " + aside +
           " and started a new one";
}

// The notice goes into the new file, at level 1, and to the notice handler.
void LogFileSink::report(const std::string& notice) {
    const Timestamp now = currentTimestamp();
    Log(1, &now, notice.c_str());
    if (m_noticeHandler) {
        m_noticeHandler(notice);
    } else {
        std::cerr << notice << std::endl;
    }
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
        if (const auto fields = splitRecord(line)) {
            m_nextSequence = toInt64(std::string(fields->sequence));
            break;
        }
    }
    while (readLine(tail, line)) {
        if (const auto fields = splitRecord(line)) {
            m_history.insert(m_nextSequence++, entryFromRecord(*fields));
        }
    }
    // The read position is counted rather than asked for: asking costs a system call a line.
    std::ifstream head(path, std::ios::binary);
    std::int64_t position = 0;
    readLine(head, line, &position);
    while (position < writePosition && readLine(head, line, &position)) {
        if (const auto fields = splitRecord(line)) {
            m_history.insert(m_nextSequence++, entryFromRecord(*fields));
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
