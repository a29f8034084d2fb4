// Files an ordinary player opens: the video records of a run as Y4M, its audio pairs as WAV.
//
//   Y4mFile video;
//   video.open("out.y4m", geometry, 10, 16, 9);
//   video.writeFrame(chunk + kVideoPictureOffset);   // planes Y, Cr, Cb; written as Y, Cb, Cr
//   WavFile pair;
//   pair.open("pair1.wav", 48000);
//   pair.append(samples, count);                       // interleaved 16-bit stereo
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

#include "tools/format_geometry.h"

namespace ovtx::tools::simulcast_follow::v1 {

// A YUV4MPEG2 stream of 4:2:0 pictures, 8-bit (C420) or 10-bit little-endian words (C420p10).
class Y4mFile {
  public:
    // Writes the stream header. The aspect ratio is the picture's (16:9, 4:3); the file gets the
    // matching pixel aspect.
    bool open(const std::string& path, const FormatGeometry& geometry, int bitDepth, int aspectNumerator,
              int aspectDenominator);
    bool isOpen() const { return m_file.is_open(); }
    // Bytes of one picture as it lies in a video record.
    std::size_t pictureBytes() const { return m_lumaBytes + 2 * m_chromaBytes; }
    // Writes one frame from a record's picture, whose chroma planes stand as Cr then Cb.
    bool writeFrame(const std::uint8_t* picture);

  private:
    std::ofstream m_file;
    std::size_t m_lumaBytes = 0;
    std::size_t m_chromaBytes = 0;
};

// A 16-bit stereo PCM WAV file; the sizes in its header are completed by close.
class WavFile {
  public:
    bool open(const std::string& path, std::uint32_t sampleRate);
    bool isOpen() const { return m_file.is_open(); }
    // Appends `stereoSamples` left/right pairs of 16-bit samples.
    bool append(const std::int16_t* samples, std::size_t stereoSamples);
    bool close();
    ~WavFile() { close(); }

  private:
    std::ofstream m_file;
    std::uint32_t m_dataBytes = 0;
};

// Sample rate of an AudioPairSampling code: 1 is 48 kHz, 2 is 44.1 kHz, 3 is 32 kHz; others 48 kHz.
std::uint32_t sampleRateOf(std::uint32_t samplingCode);

}  // namespace ovtx::tools::simulcast_follow::v1
