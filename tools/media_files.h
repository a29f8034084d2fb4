// Files an ordinary player opens: the video records of a run as Y4M, its audio pairs as WAV.
// Every file may be standard output ("-" or /dev/stdout), so that it can be piped into a player.
//
//   Y4mFile video;
//   video.open("-");                                     // created at once, header with the first frame
//   video.start(geometry, 10, 16, 9);
//   video.writeFrame(chunk + kVideoPictureOffset);       // planes Y, Cr, Cb; written as Y, Cb, Cr
//   WavFile pair;
//   pair.open("pair1.wav");                              // a valid, empty 48 kHz file from here on
//   pair.start(44100);                                   // the rate of the first record
//   pair.append(samples, count);                         // interleaved 16-bit stereo
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

#include "tools/format_geometry.h"

namespace ovtx::tools::simulcast_follow::v1 {

// True for the names of standard output: "-" and "/dev/stdout".
bool isStandardOutput(std::string_view path);

// A file being written, or standard output. Writes go through a buffer; a pipe or terminal can't
// seek, so headers that need sizes only known at the end are completed on regular files only.
class OutputFile {
  public:
    bool open(const std::string& path);
    bool isOpen() const { return m_file.is_open(); }
    bool seekable() const { return m_seekable; }
    std::ostream& stream() { return m_file; }
    bool good() const { return static_cast<bool>(m_file); }
    // Writes `bytes` at `offset` and returns to the end (regular files only).
    bool overwrite(std::streamoff offset, std::string_view bytes);
    bool close();

  private:
    std::ofstream m_file;
    bool m_seekable = false;
};

// A YUV4MPEG2 stream of 4:2:0 pictures, 8-bit (C420) or 10-bit little-endian words (C420p10).
class Y4mFile {
  public:
    // Creates the file; the stream header follows with start().
    bool open(const std::string& path) { return m_file.open(path); }
    bool isOpen() const { return m_file.isOpen(); }
    bool started() const { return m_lumaBytes > 0; }
    // Writes the stream header. The aspect ratio is the picture's (16:9, 4:3); the file gets the
    // matching pixel aspect. Interlaced formats are marked top field first, except the 480-line
    // ones, whose pictures stand bottom field first.
    bool start(const FormatGeometry& geometry, int bitDepth, int aspectNumerator, int aspectDenominator);
    // Bytes of one picture as it lies in a video record.
    std::size_t pictureBytes() const { return m_lumaBytes + 2 * m_chromaBytes; }
    // Writes one frame from a record's picture, whose chroma planes stand as Cr then Cb.
    bool writeFrame(const std::uint8_t* picture);
    bool close() { return m_file.close(); }

  private:
    OutputFile m_file;
    std::size_t m_lumaBytes = 0;
    std::size_t m_chromaBytes = 0;
};

// A 16-bit stereo PCM WAV file. On a regular file the header is there from open() on and its
// sizes are brought up to date by every append, so the file is complete whenever the follow
// ends; on a pipe the header comes with start() and declares an open-ended length.
class WavFile {
  public:
    static constexpr std::uint32_t kDefaultSampleRate = 48000;

    bool open(const std::string& path);
    bool isOpen() const { return m_file.isOpen(); }
    bool started() const { return m_started; }
    // The sample rate of the samples to come; call once, before the first append.
    bool start(std::uint32_t sampleRate);
    std::uint32_t sampleRate() const { return m_sampleRate; }
    // Appends `stereoSamples` left/right pairs of 16-bit samples; false also once a regular file
    // would pass the 4 GB that a WAV header can count (full() tells).
    bool append(const std::int16_t* samples, std::size_t stereoSamples);
    bool full() const { return m_full; }
    bool close();
    ~WavFile() { close(); }

  private:
    std::string header(std::uint32_t sampleRate, std::uint32_t dataBytes) const;

    OutputFile m_file;
    std::uint32_t m_sampleRate = kDefaultSampleRate;
    std::uint32_t m_dataBytes = 0;
    bool m_started = false;
    bool m_full = false;
};

// Sample rate of an AudioPairSampling code: 1 is 48 kHz, 2 is 44.1 kHz, 3 is 32 kHz; others 48 kHz.
std::uint32_t sampleRateOf(std::uint32_t samplingCode);

}  // namespace ovtx::tools::simulcast_follow::v1
