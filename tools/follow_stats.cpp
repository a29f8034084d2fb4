#include "tools/follow_stats.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "cpp_utils/cpp_tools/string_format.h"
#include "simulcast/capture_records.h"

namespace ovtx::tools::simulcast_follow::v1 {

namespace {

using cpp_utils::cpp_tools::v1::formatText;

namespace records = simulcast::capture_records::v1;

constexpr int kNotPresent = -1;

}  // namespace

std::string peakDbfs(int peak) {
    if (peak <= 0) {
        return "-inf";
    }
    return formatText("%.1f", 20.0 * std::log10(static_cast<double>(peak) / 32768.0));
}

void ChannelStats::add(bool transportDiscontinuity, const std::uint8_t* chunk, std::size_t bytes) {
    std::lock_guard lock(m_mutex);
    ++m_records;
    ++m_windowRecords;
    m_discontinuities += transportDiscontinuity ? 1 : 0;
    switch (m_kind) {
        case RecordKind::Video:
            if (bytes >= sizeof(records::VideoRecordHeader)) {
                addVideo(chunk);
            }
            break;
        case RecordKind::Audio:
            if (bytes >= sizeof(records::AudioRecord)) {
                addAudio(chunk);
            }
            break;
        case RecordKind::Captions:
            addCaptions(chunk, bytes);
            break;
        case RecordKind::Teletext:
            addTeletext(chunk, bytes);
            break;
        case RecordKind::Raw:
            break;
    }
}

void ChannelStats::addVideo(const std::uint8_t* chunk) {
    const auto header = recordField<records::VideoRecordHeader>(chunk, 0);
    m_lastStart = header.start;
    m_discontinuities += header.discontinuity != 0 ? 1 : 0;
    m_detail = formatText(" aspect=%u:%u%s", header.aspectNumerator, header.aspectDenominator,
                          header.standardMismatch != 0 ? " mismatch" : "");
}

void ChannelStats::addAudio(const std::uint8_t* chunk) {
    m_lastStart = recordField<std::int64_t>(chunk, offsetof(records::AudioRecord, start));
    m_discontinuities += chunk[offsetof(records::AudioRecord, discontinuity)] != 0 ? 1 : 0;
    for (std::size_t p = 0; p < m_peaks.size(); ++p) {
        const std::uint8_t* pair =
            chunk + offsetof(records::AudioRecord, pairs) + sizeof(records::AudioPairBlock) * p;
        if (pair[offsetof(records::AudioPairBlock, present)] == 0) {
            continue;
        }
        const std::size_t count = std::min<std::size_t>(
            recordField<std::uint16_t>(pair, offsetof(records::AudioPairBlock, sampleCount)),
            records::kMaxStereoSamples);
        int peak = std::max(m_peaks[p], 0);
        for (std::size_t i = 0; i < count * 2; ++i) {
            const int sample =
                recordField<std::int16_t>(pair, offsetof(records::AudioPairBlock, samples) + 2 * i);
            peak = std::max(peak, std::abs(sample));
        }
        m_peaks[p] = peak;
    }
}

void ChannelStats::addCaptions(const std::uint8_t* chunk, std::size_t bytes) {
    const std::size_t head = offsetof(records::CaptionRecord, entries);
    if (bytes < head) {
        return;
    }
    m_lastStart = recordField<std::int64_t>(chunk, offsetof(records::CaptionRecord, start));
    const std::size_t count =
        std::min<std::size_t>({chunk[offsetof(records::CaptionRecord, count)], records::kMaxCaptionEntries,
                               (bytes - head) / sizeof(records::CaptionEntry)});
    for (std::size_t i = 0; i < count; ++i) {
        const auto entry =
            recordField<records::CaptionEntry>(chunk, head + i * sizeof(records::CaptionEntry));
        if (entry.ccValid == 1 && entry.ccType == 0 && ((entry.ccData1 | entry.ccData2) & 0x7F) != 0) {
            ++m_windowItems;
        }
    }
    m_detail = formatText(" entries=%zu", count);
}

void ChannelStats::addTeletext(const std::uint8_t* chunk, std::size_t bytes) {
    if (bytes < sizeof(records::TeletextRecord)) {
        return;
    }
    const auto record = recordField<records::TeletextRecord>(chunk, 0);
    m_lastStart = record.start;
    if (record.dataLength > 1) {
        m_windowItems += (std::min<std::size_t>(record.dataLength, records::kMaxTeletextDataBytes) - 1) /
                         records::kTeletextDataUnitBytes;
    }
    const std::size_t descriptor =
        std::min<std::size_t>(record.descriptorLength, records::kMaxTeletextDescriptorBytes);
    if (descriptor > 2) {
        std::string pages;
        for (std::size_t at = 2; at + 5 <= descriptor; at += 5) {
            const int magazine = record.descriptor[at + 3] & 0x07;
            pages += formatText("%s%d%02X", pages.empty() ? "" : ",", magazine == 0 ? 8 : magazine,
                                record.descriptor[at + 4]);
        }
        m_detail = " pages=" + pages;
    }
}

std::string ChannelStats::takeLine(double seconds) {
    std::lock_guard lock(m_mutex);
    std::string line = formatText(
        "stats %s records=%lld rate=%.2f disc=%lld last_start=%lld", std::string(kindName(m_kind)).c_str(),
        static_cast<long long>(m_records), seconds > 0 ? static_cast<double>(m_windowRecords) / seconds : 0.0,
        static_cast<long long>(m_discontinuities), static_cast<long long>(m_lastStart));
    if (m_kind == RecordKind::Audio) {
        line += " peak_dBFS=";
        for (std::size_t p = 0; p < m_peaks.size(); ++p) {
            line +=
                (p == 0 ? "" : ",") + (m_peaks[p] == kNotPresent ? std::string("-") : peakDbfs(m_peaks[p]));
        }
    }
    line += m_detail;
    if (m_kind == RecordKind::Captions) {
        line += formatText(" cc1_pairs=%lld", static_cast<long long>(m_windowItems));
    } else if (m_kind == RecordKind::Teletext) {
        line += formatText(" lines=%lld", static_cast<long long>(m_windowItems));
    }
    m_windowRecords = 0;
    m_windowItems = 0;
    m_peaks.fill(kNotPresent);
    return line;
}

}  // namespace ovtx::tools::simulcast_follow::v1
