#include "tools/media_files.h"

#include <limits>
#include <numeric>

namespace ovtx::tools::simulcast_follow::v1 {

namespace {

void putLittleEndian(std::string& out, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
    }
}

constexpr std::uint32_t kWavHeaderBytes = 44;
constexpr std::uint32_t kWavUnknownSize = std::numeric_limits<std::uint32_t>::max();
constexpr char kStandardOutput[] = "/dev/stdout";

}  // namespace

bool isStandardOutput(std::string_view path) {
    return path == "-" || path == kStandardOutput;
}

bool OutputFile::open(const std::string& path) {
    m_file.open(isStandardOutput(path) ? kStandardOutput : path, std::ios::binary | std::ios::trunc);
    m_seekable = m_file.is_open() && m_file.tellp() != std::streampos(-1);
    m_file.clear();
    return m_file.is_open();
}

bool OutputFile::overwrite(std::streamoff offset, std::string_view bytes) {
    if (!m_seekable) {
        return false;
    }
    const std::streampos end = m_file.tellp();
    m_file.seekp(offset);
    m_file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    m_file.seekp(end);
    return good();
}

bool OutputFile::close() {
    if (!m_file.is_open()) {
        return true;
    }
    m_file.flush();
    const bool ok = good();
    m_file.close();
    return ok;
}

bool Y4mFile::start(const FormatGeometry& geometry, int bitDepth, int aspectNumerator,
                    int aspectDenominator) {
    const std::size_t sampleBytes = bitDepth > 8 ? 2 : 1;
    m_lumaBytes =
        static_cast<std::size_t>(geometry.width) * static_cast<std::size_t>(geometry.height) * sampleBytes;
    m_chromaBytes = m_lumaBytes / 4;
    // Pixel aspect = picture aspect × height / width.
    long long pixelNumerator = static_cast<long long>(aspectNumerator) * geometry.height;
    long long pixelDenominator = static_cast<long long>(aspectDenominator) * geometry.width;
    const long long divisor = std::gcd(pixelNumerator, pixelDenominator);
    if (divisor > 0) {
        pixelNumerator /= divisor;
        pixelDenominator /= divisor;
    } else {
        pixelNumerator = pixelDenominator = 0;  // unknown
    }
    const char scan = !geometry.interlaced ? 'p' : (geometry.height == 480 ? 'b' : 't');
    m_file.stream() << "YUV4MPEG2 W" << geometry.width << " H" << geometry.height << " F"
                    << geometry.rateNumerator << ':' << geometry.rateDenominator << " I" << scan << " A"
                    << pixelNumerator << ':' << pixelDenominator
                    << (bitDepth > 8 ? " C420p10 XYSCSS=420P10" : " C420") << '\n';
    return m_file.good();
}

bool Y4mFile::writeFrame(const std::uint8_t* picture) {
    const auto* cr = picture + m_lumaBytes;
    const auto* cb = cr + m_chromaBytes;
    std::ostream& out = m_file.stream();
    out << "FRAME\n";
    out.write(reinterpret_cast<const char*>(picture), static_cast<std::streamsize>(m_lumaBytes));
    out.write(reinterpret_cast<const char*>(cb), static_cast<std::streamsize>(m_chromaBytes));
    out.write(reinterpret_cast<const char*>(cr), static_cast<std::streamsize>(m_chromaBytes));
    out.flush();  // a player on the other end of a pipe shows each frame as it comes
    return m_file.good();
}

std::string WavFile::header(std::uint32_t sampleRate, std::uint32_t dataBytes) const {
    const bool open = dataBytes == kWavUnknownSize;
    std::string out = "RIFF";
    putLittleEndian(out, open ? kWavUnknownSize : kWavHeaderBytes - 8 + dataBytes, 4);
    out += "WAVEfmt ";
    putLittleEndian(out, 16, 4);  // format chunk size
    putLittleEndian(out, 1, 2);   // PCM
    putLittleEndian(out, 2, 2);   // channels
    putLittleEndian(out, sampleRate, 4);
    putLittleEndian(out, sampleRate * 4, 4);  // bytes per second
    putLittleEndian(out, 4, 2);               // block align
    putLittleEndian(out, 16, 2);              // bits per sample
    out += "data";
    putLittleEndian(out, dataBytes, 4);
    return out;
}

bool WavFile::open(const std::string& path) {
    m_dataBytes = 0;
    m_started = false;
    m_sampleRate = kDefaultSampleRate;
    if (!m_file.open(path)) {
        return false;
    }
    if (m_file.seekable()) {
        const std::string head = header(m_sampleRate, 0);
        m_file.stream().write(head.data(), static_cast<std::streamsize>(head.size()));
        m_file.stream().flush();
    }
    return m_file.good();
}

bool WavFile::start(std::uint32_t sampleRate) {
    m_started = true;
    m_sampleRate = sampleRate;
    if (m_file.seekable()) {
        return m_file.overwrite(0, header(m_sampleRate, m_dataBytes));
    }
    const std::string head = header(m_sampleRate, kWavUnknownSize);
    m_file.stream().write(head.data(), static_cast<std::streamsize>(head.size()));
    return m_file.good();
}

bool WavFile::append(const std::int16_t* samples, std::size_t stereoSamples) {
    const std::size_t bytes = stereoSamples * 4;
    if (m_file.seekable() && bytes > kWavUnknownSize - kWavHeaderBytes - m_dataBytes) {
        m_full = true;
        return false;
    }
    m_file.stream().write(reinterpret_cast<const char*>(samples), static_cast<std::streamsize>(bytes));
    m_dataBytes += static_cast<std::uint32_t>(bytes);
    if (m_file.seekable()) {
        // The sizes stay right after every record: an interrupted follow leaves a complete file.
        std::string sizes;
        putLittleEndian(sizes, kWavHeaderBytes - 8 + m_dataBytes, 4);
        if (!m_file.overwrite(4, sizes)) {
            return false;
        }
        sizes.clear();
        putLittleEndian(sizes, m_dataBytes, 4);
        return m_file.overwrite(40, sizes);
    }
    m_file.stream().flush();
    return m_file.good();
}

bool WavFile::close() {
    return m_file.close();
}

std::uint32_t sampleRateOf(std::uint32_t samplingCode) {
    switch (samplingCode) {
        case 2:
            return 44100;
        case 3:
            return 32000;
        default:
            return 48000;
    }
}

}  // namespace ovtx::tools::simulcast_follow::v1
