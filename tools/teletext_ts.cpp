#include "tools/teletext_ts.h"

#include <algorithm>
#include <boost/crc.hpp>

#include "encoding/subtitling/teletext_coding.h"

namespace ovtx::tools::simulcast_follow::v1 {

namespace {

namespace ttx = encoding::subtitling::v1;

constexpr std::size_t kTsPayloadSize = kTsPacketSize - 4;
constexpr std::uint8_t kSyncByte = 0x47;
constexpr std::uint8_t kPrivateStream1 = 0xBD;
constexpr std::uint8_t kPrivatePesStreamType = 0x06;
constexpr std::uint8_t kTeletextPesHeaderDataLength = 0x24;
constexpr std::uint8_t kStuffingDataUnit = 0xFF;

void put16(std::vector<std::uint8_t>& out, unsigned value) {
    out.push_back(static_cast<std::uint8_t>(value >> 8));
    out.push_back(static_cast<std::uint8_t>(value));
}

// Section length and CRC of a PSI section whose body (from table_id on) is in `section`.
std::vector<std::uint8_t> finishSection(std::vector<std::uint8_t> section) {
    const std::size_t length = section.size() - 3 + 4;  // after the length field, CRC included
    section[1] = static_cast<std::uint8_t>(0xB0 | (length >> 8));
    section[2] = static_cast<std::uint8_t>(length);
    const std::uint32_t crc = mpegCrc32(section);
    for (int shift = 24; shift >= 0; shift -= 8) {
        section.push_back(static_cast<std::uint8_t>(crc >> shift));
    }
    return section;
}

// table_id, length (filled in later), id, version and current, section numbers 0 and 0.
std::vector<std::uint8_t> sectionHead(std::uint8_t tableId, unsigned id, std::uint8_t version) {
    std::vector<std::uint8_t> section{tableId, 0, 0};
    put16(section, id);
    section.push_back(static_cast<std::uint8_t>(0xC1 | ((version & 0x1F) << 1)));
    section.push_back(0);
    section.push_back(0);
    return section;
}

void putPts(std::vector<std::uint8_t>& out, std::int64_t pts) {
    const auto value = static_cast<std::uint64_t>(pts) & ((std::uint64_t{1} << 33) - 1);
    out.push_back(static_cast<std::uint8_t>(0x21 | ((value >> 29) & 0x0E)));
    out.push_back(static_cast<std::uint8_t>(value >> 22));
    out.push_back(static_cast<std::uint8_t>(0x01 | ((value >> 14) & 0xFE)));
    out.push_back(static_cast<std::uint8_t>(value >> 7));
    out.push_back(static_cast<std::uint8_t>(0x01 | ((value << 1) & 0xFE)));
}

}  // namespace

std::uint32_t mpegCrc32(std::span<const std::uint8_t> bytes) {
    boost::crc_optimal<32, 0x04C11DB7, 0xFFFFFFFF, 0, false, false> crc;
    crc.process_bytes(bytes.data(), bytes.size());
    return crc.checksum();
}

std::vector<std::uint8_t> patSection() {
    std::vector<std::uint8_t> section = sectionHead(0x00, 1, 0);  // transport_stream_id 1
    put16(section, kProgramNumber);
    put16(section, 0xE000 | kPmtPid);
    return finishSection(std::move(section));
}

std::vector<std::uint8_t> pmtSection(std::span<const std::uint8_t> descriptor, std::uint8_t version) {
    std::vector<std::uint8_t> section = sectionHead(0x02, kProgramNumber, version);
    put16(section, 0xE000 | kTeletextPid);  // PCR_PID
    put16(section, 0xF000);                 // no program descriptors
    section.push_back(kPrivatePesStreamType);
    put16(section, 0xE000 | kTeletextPid);
    put16(section, 0xF000 | static_cast<unsigned>(descriptor.size()));
    section.insert(section.end(), descriptor.begin(), descriptor.end());
    return finishSection(std::move(section));
}

std::vector<std::uint8_t> teletextPes(std::span<const std::uint8_t> dataField, std::int64_t pts90kHz) {
    const std::size_t units = dataField.empty() ? 0 : (dataField.size() - 1) / ttx::kTeletextDataUnitSize;
    // Header (9 + 0x24 bytes), data identifier and units make 46 × (units + 1) bytes: a multiple
    // of 184 takes a number of units one short of a multiple of four.
    const std::size_t paddedUnits = (units + 1 + 3) / 4 * 4 - 1;
    std::vector<std::uint8_t> pes{0x00, 0x00, 0x01, kPrivateStream1, 0, 0};
    pes.push_back(0x84);  // '10', data_alignment_indicator
    pes.push_back(0x80);  // PTS only
    pes.push_back(kTeletextPesHeaderDataLength);
    putPts(pes, pts90kHz);
    pes.resize(9 + kTeletextPesHeaderDataLength, 0xFF);  // header stuffing
    pes.push_back(dataField.empty() ? ttx::kTeletextDataIdentifier : dataField[0]);
    pes.insert(pes.end(), dataField.begin() + (dataField.empty() ? 0 : 1),
               dataField.begin() + static_cast<std::ptrdiff_t>(dataField.empty() ? 0 : 1 + units * 46));
    for (std::size_t u = units; u < paddedUnits; ++u) {
        pes.push_back(kStuffingDataUnit);
        pes.push_back(ttx::kTeletextDataUnitLength);
        pes.insert(pes.end(), ttx::kTeletextDataUnitLength, 0xFF);
    }
    const std::size_t length = pes.size() - 6;
    pes[4] = static_cast<std::uint8_t>(length >> 8);
    pes[5] = static_cast<std::uint8_t>(length);
    return pes;
}

std::vector<std::uint8_t> tsPackets(std::uint16_t pid, std::span<const std::uint8_t> payload,
                                    std::uint8_t& continuity) {
    std::vector<std::uint8_t> out;
    std::size_t offset = 0;
    do {
        const std::size_t take = std::min(kTsPayloadSize, payload.size() - offset);
        const bool stuffed = take < kTsPayloadSize;
        out.push_back(kSyncByte);
        out.push_back(static_cast<std::uint8_t>((offset == 0 ? 0x40 : 0x00) | (pid >> 8)));
        out.push_back(static_cast<std::uint8_t>(pid));
        out.push_back(static_cast<std::uint8_t>((stuffed ? 0x30 : 0x10) | (continuity & 0x0F)));
        continuity = static_cast<std::uint8_t>((continuity + 1) & 0x0F);
        if (stuffed) {
            const std::size_t adaptation = kTsPayloadSize - take - 1;  // its length field aside
            out.push_back(static_cast<std::uint8_t>(adaptation));
            if (adaptation > 0) {
                out.push_back(0x00);  // no flags
                out.insert(out.end(), adaptation - 1, 0xFF);
            }
        }
        out.insert(out.end(), payload.begin() + static_cast<std::ptrdiff_t>(offset),
                   payload.begin() + static_cast<std::ptrdiff_t>(offset + take));
        offset += take;
    } while (offset < payload.size());
    return out;
}

std::vector<std::uint8_t> pcrPacket(std::uint16_t pid, std::int64_t pcr27MHz, std::uint8_t continuity) {
    std::vector<std::uint8_t> out{kSyncByte,
                                  static_cast<std::uint8_t>(pid >> 8),
                                  static_cast<std::uint8_t>(pid),
                                  static_cast<std::uint8_t>(0x20 | (continuity & 0x0F)),
                                  183,
                                  0x10};
    const auto base = static_cast<std::uint64_t>(pcr27MHz / 300) & ((std::uint64_t{1} << 33) - 1);
    const auto extension = static_cast<std::uint64_t>(pcr27MHz % 300);
    out.push_back(static_cast<std::uint8_t>(base >> 25));
    out.push_back(static_cast<std::uint8_t>(base >> 17));
    out.push_back(static_cast<std::uint8_t>(base >> 9));
    out.push_back(static_cast<std::uint8_t>(base >> 1));
    out.push_back(static_cast<std::uint8_t>(((base & 1) << 7) | 0x7E | (extension >> 8)));
    out.push_back(static_cast<std::uint8_t>(extension));
    out.resize(kTsPacketSize, 0xFF);
    return out;
}

bool TeletextTsFile::open(const std::string& path) {
    return m_file.open(path) && writeTables();
}

bool TeletextTsFile::write(std::span<const std::uint8_t> descriptor, std::span<const std::uint8_t> dataField,
                           std::int64_t time) {
    // A frame without lines says 0x46, 0x00: the announced pages stay as they were.
    if (descriptor.size() > 2 && descriptor[0] == ttx::kTeletextDescriptorTag &&
        !std::equal(descriptor.begin(), descriptor.end(), m_descriptor.begin(), m_descriptor.end())) {
        m_descriptor.assign(descriptor.begin(), descriptor.end());
        m_version = static_cast<std::uint8_t>((m_version + 1) & 0x1F);
        m_sinceTables = kTableInterval;
    }
    if (++m_sinceTables >= kTableInterval && !writeTables()) {
        return false;
    }
    const std::int64_t pts = kPtsOffset90kHz + time * 9 / 1000;
    // A packet without payload repeats the counter of the packet before it.
    const auto lastContinuity = static_cast<std::uint8_t>((m_teletextContinuity + 15) & 0x0F);
    if (!writeBytes(pcrPacket(kTeletextPid, (pts - kPcrLead90kHz) * 300, lastContinuity))) {
        return false;
    }
    if (dataField.size() <= ttx::kTeletextDataUnitSize) {
        return true;  // no lines in this frame
    }
    const bool ok = writeBytes(tsPackets(kTeletextPid, teletextPes(dataField, pts), m_teletextContinuity));
    m_file.stream().flush();
    return ok;
}

bool TeletextTsFile::writeBytes(const std::vector<std::uint8_t>& bytes) {
    m_file.stream().write(reinterpret_cast<const char*>(bytes.data()),
                          static_cast<std::streamsize>(bytes.size()));
    return m_file.good();
}

bool TeletextTsFile::writeTables() {
    m_sinceTables = 0;
    auto withPointer = [](std::vector<std::uint8_t> section) {
        section.insert(section.begin(), 0x00);  // pointer_field
        return section;
    };
    return writeBytes(tsPackets(kPatPid, withPointer(patSection()), m_patContinuity)) &&
           writeBytes(tsPackets(kPmtPid, withPointer(pmtSection(m_descriptor, m_version)), m_pmtContinuity));
}

}  // namespace ovtx::tools::simulcast_follow::v1
