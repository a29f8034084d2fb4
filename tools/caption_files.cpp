#include "tools/caption_files.h"

#include <algorithm>
#include <cstdio>

#include "simulcast/capture_records.h"

namespace ovtx::tools::simulcast_follow::v1 {

namespace {

using simulcast::capture_records::v1::kTimeUnitsPerSecond;

constexpr std::int64_t kSccRateNumerator = 30000;
constexpr std::int64_t kSccRateDenominator = 1001;
constexpr std::int64_t kFramesPerTenMinutes = 17982;  // 10 × 1800 - 9 × 2
constexpr std::int64_t kFramesPerDroppedMinute = 1798;

std::string twoDigits(std::int64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "%02lld", static_cast<long long>(value));
    return text;
}

bool isNull(Cea608Pair pair) {
    return (pair.first & 0x7F) == 0 && (pair.second & 0x7F) == 0;
}

}  // namespace

std::string dropFrameTimecode(std::int64_t frame) {
    const std::int64_t tens = frame / kFramesPerTenMinutes;
    const std::int64_t rest = frame % kFramesPerTenMinutes;
    std::int64_t counted = frame + 18 * tens;
    if (rest >= 2) {
        counted += 2 * ((rest - 2) / kFramesPerDroppedMinute);
    }
    return twoDigits(counted / 108000) + ":" + twoDigits(counted / 1800 % 60) + ":" +
           twoDigits(counted / 30 % 60) + ";" + twoDigits(counted % 30);
}

std::int64_t sccFrameAt(std::int64_t time) {
    const std::int64_t unitsPerFrameTimesNumerator = kTimeUnitsPerSecond * kSccRateDenominator;
    return (time * kSccRateNumerator + unitsPerFrameTimesNumerator / 2) / unitsPerFrameTimesNumerator;
}

std::string subRipTime(std::int64_t time) {
    const std::int64_t ms = std::max<std::int64_t>(time, 0) / 10000;
    char text[40];
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld,%03lld", static_cast<long long>(ms / 3600000),
                  static_cast<long long>(ms / 60000 % 60), static_cast<long long>(ms / 1000 % 60),
                  static_cast<long long>(ms % 1000));
    return text;
}

bool SccFile::open(const std::string& path) {
    if (!m_file.open(path)) {
        return false;
    }
    m_file.stream() << "Scenarist_SCC V1.0\n";
    m_file.stream().flush();
    return m_file.good();
}

bool SccFile::addPair(std::int64_t time, Cea608Pair pair) {
    if (isNull(pair)) {
        return true;
    }
    const std::int64_t frame = std::max(sccFrameAt(time), m_lastFrame + 1);
    bool ok = true;
    if (!m_line.empty() && (frame != m_lastFrame + 1 || m_line.size() >= kMaxWordsPerLine)) {
        ok = flushLine();
    }
    if (m_line.empty()) {
        m_lineFrame = frame;
    }
    m_line.push_back(pair);
    m_lastFrame = frame;
    return ok;
}

bool SccFile::flushLine() {
    if (m_line.empty()) {
        return true;
    }
    std::ostream& out = m_file.stream();
    out << '\n' << dropFrameTimecode(m_lineFrame) << '\t';
    for (std::size_t i = 0; i < m_line.size(); ++i) {
        char word[8];
        std::snprintf(word, sizeof word, "%s%02x%02x", i == 0 ? "" : " ", m_line[i].first, m_line[i].second);
        out << word;
    }
    out << '\n';
    out.flush();
    m_line.clear();
    return m_file.good();
}

bool SccFile::close() {
    const bool flushed = !m_file.isOpen() || flushLine();
    return m_file.close() && flushed;
}

bool SubRipFile::show(std::int64_t time, const std::string& text) {
    if (text == m_text) {
        return true;
    }
    if (!m_text.empty() && time > m_since) {
        std::ostream& out = m_file.stream();
        out << ++m_cues << '\n'
            << subRipTime(m_since) << " --> " << subRipTime(time) << '\n'
            << m_text << "\n\n";
        out.flush();
    }
    m_text = text;
    m_since = time;
    return m_file.good();
}

bool SubRipFile::close(std::int64_t time) {
    const bool ok = !m_file.isOpen() || show(time, "");
    return m_file.close() && ok;
}

}  // namespace ovtx::tools::simulcast_follow::v1
