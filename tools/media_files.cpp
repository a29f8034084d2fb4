#include "tools/media_files.h"

#include <numeric>

namespace ovtx::tools::simulcast_follow::v1 {

namespace {

void putLittleEndian(std::ofstream& file, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        file.put(static_cast<char>((value >> (8 * i)) & 0xFF));
    }
}

constexpr std::uint32_t kWavHeaderBytes = 44;

}  // namespace

bool Y4mFile::open(const std::string& path, const FormatGeometry& geometry, int bitDepth, int aspectNumerator,
                   int aspectDenominator) {
    m_file.open(path, std::ios::binary | std::ios::trunc);
    if (!m_file) {
        return false;
    }
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
    m_file << "YUV4MPEG2 W" << geometry.width << " H" << geometry.height << " F" << geometry.rateNumerator
           << ':' << geometry.rateDenominator << " I" << (geometry.interlaced ? 't' : 'p') << " A"
           << pixelNumerator << ':' << pixelDenominator << (bitDepth > 8 ? " C420p10 XYSCSS=420P10" : " C420")
           << '\n';
    return static_cast<bool>(m_file);
}

bool Y4mFile::writeFrame(const std::uint8_t* picture) {
    const auto* cr = picture + m_lumaBytes;
    const auto* cb = cr + m_chromaBytes;
    m_file << "FRAME\n";
    m_file.write(reinterpret_cast<const char*>(picture), static_cast<std::streamsize>(m_lumaBytes));
    m_file.write(reinterpret_cast<const char*>(cb), static_cast<std::streamsize>(m_chromaBytes));
    m_file.write(reinterpret_cast<const char*>(cr), static_cast<std::streamsize>(m_chromaBytes));
    return static_cast<bool>(m_file);
}

bool WavFile::open(const std::string& path, std::uint32_t sampleRate) {
    m_file.open(path, std::ios::binary | std::ios::trunc);
    m_dataBytes = 0;
    if (!m_file) {
        return false;
    }
    m_file.write("RIFF", 4);
    putLittleEndian(m_file, kWavHeaderBytes - 8, 4);  // completed by close
    m_file.write("WAVEfmt ", 8);
    putLittleEndian(m_file, 16, 4);  // format chunk size
    putLittleEndian(m_file, 1, 2);   // PCM
    putLittleEndian(m_file, 2, 2);   // channels
    putLittleEndian(m_file, sampleRate, 4);
    putLittleEndian(m_file, sampleRate * 4, 4);  // bytes per second
    putLittleEndian(m_file, 4, 2);               // block align
    putLittleEndian(m_file, 16, 2);              // bits per sample
    m_file.write("data", 4);
    putLittleEndian(m_file, 0, 4);  // completed by close
    return static_cast<bool>(m_file);
}

bool WavFile::append(const std::int16_t* samples, std::size_t stereoSamples) {
    const std::size_t bytes = stereoSamples * 4;
    m_file.write(reinterpret_cast<const char*>(samples), static_cast<std::streamsize>(bytes));
    m_dataBytes += static_cast<std::uint32_t>(bytes);
    return static_cast<bool>(m_file);
}

bool WavFile::close() {
    if (!m_file.is_open()) {
        return true;
    }
    m_file.seekp(4);
    putLittleEndian(m_file, kWavHeaderBytes - 8 + m_dataBytes, 4);
    m_file.seekp(40);
    putLittleEndian(m_file, m_dataBytes, 4);
    const bool ok = static_cast<bool>(m_file);
    m_file.close();
    return ok;
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
