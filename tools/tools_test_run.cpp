// A stand-in for a running sdi_tap, for the tools' end-to-end tests: it publishes a small 10-bit
// PAL stream with known content on the four channels of a port, with its format block and its
// stop event, until the stop event is set or its standard input closes.
//
//   tools_test_run <portName>      prints "ready" once everything is open, "stopped" at the end
//
// Picture: Y = 100, Cr = 200, Cb = 50 (so a Y4M file must hold Y, 50, 200). Audio: pair 1 present
// at 48 kHz with 1920 samples of value (left 1000, right -1000); the others absent. Captions: 3
// entries. Teletext: an empty descriptor and no data.
#include <chrono>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>

#include "simulcast/capture_records.h"
#include "simulcast/simulcast_writer.h"
#include "system/ipc/generic_shared_memory.h"
#include "system/ipc/named_objects.h"

namespace {

using namespace ovtx::simulcast::capture_records::v1;
using ovtx::simulcast::simulcast_channel::v1::SimulcastWriter;
namespace ipc = ovtx::system::ipc::v2;

constexpr int kWidth = 720;
constexpr int kHeight = 576;
constexpr std::int64_t kRateNumerator = 25;
constexpr std::int64_t kRateDenominator = 1;

void publishVideo(SimulcastWriter& writer, std::int64_t frame) {
    auto* chunk = static_cast<std::uint8_t*>(writer.beginChunk());
    VideoRecordHeader header{};
    header.magic = kVideoMagic;
    header.aspectNumerator = 4;
    header.aspectDenominator = 3;
    header.start = frameStartTime(frame, kRateNumerator, kRateDenominator);
    header.end = frameEndTime(frame, kRateNumerator, kRateDenominator);
    std::memcpy(chunk, &header, sizeof header);
    auto* samples = reinterpret_cast<std::uint16_t*>(chunk + kVideoPictureOffset);
    const std::size_t luma = static_cast<std::size_t>(kWidth) * kHeight;
    std::fill_n(samples, luma, std::uint16_t{100});
    std::fill_n(samples + luma, luma / 4, std::uint16_t{200});            // Cr
    std::fill_n(samples + luma + luma / 4, luma / 4, std::uint16_t{50});  // Cb
    writer.commitChunk();
}

void publishAudio(SimulcastWriter& writer, std::int64_t frame) {
    auto* record = static_cast<AudioRecord*>(writer.beginChunk());
    record->magic = kAudioMagic;
    record->discontinuity = 0;
    record->start = frameStartTime(frame, kRateNumerator, kRateDenominator);
    record->end = frameEndTime(frame, kRateNumerator, kRateDenominator);
    for (int p = 0; p < kAudioPairCount; ++p) {
        AudioPairBlock& pair = record->pairs[p];
        pair.present = p == 0 ? 1 : 0;
        pair.mode = kStereoAudioMode;
        pair.sampleCount = 1920;
        pair.sampling = 1;
        for (int i = 0; i < 1920; ++i) {
            pair.samples[2 * i] = p == 0 ? 1000 : 0;
            pair.samples[2 * i + 1] = p == 0 ? -1000 : 0;
        }
    }
    writer.commitChunk();
}

void publishCaptions(SimulcastWriter& writer, std::int64_t frame) {
    auto* record = static_cast<CaptionRecord*>(writer.beginChunk());
    record->start = frameStartTime(frame, kRateNumerator, kRateDenominator);
    record->end = frameEndTime(frame, kRateNumerator, kRateDenominator);
    record->count = 3;
    for (int i = 0; i < 3; ++i) {
        record->entries[i] = CaptionEntry{31, 1, 0, 0x80, 0x80};
    }
    writer.commitChunk();
}

void publishTeletext(SimulcastWriter& writer, std::int64_t frame) {
    auto* record = static_cast<TeletextRecord*>(writer.beginChunk());
    record->magic = kTeletextMagic;
    record->descriptorLength = 2;
    record->dataLength = 0;
    record->start = frameStartTime(frame, kRateNumerator, kRateDenominator);
    record->end = frameEndTime(frame, kRateNumerator, kRateDenominator);
    record->descriptor[0] = kTeletextDescriptorTag;
    record->descriptor[1] = 0;
    writer.commitChunk();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: tools_test_run <portName>\n";
        return 1;
    }
    const std::string port = argv[1];
    auto stopEvent = ipc::NamedEvent::createOrJoin(channelName(kStopEventPrefix, port),
                                                   ipc::NamedEvent::Reset::Manual, false);
    ipc::GenericSharedMemory format(channelName(kVideoFormatPrefix, port), kCaptureFormatBlockBytes);
    format.lock();
    *static_cast<FormatBlock*>(format.view()) = FormatBlock{0, 10};
    format.unlock();

    SimulcastWriter video;
    SimulcastWriter audio;
    SimulcastWriter captions;
    SimulcastWriter teletext;
    const bool opened = video.open(kPatternVideoChunks, patternVideoChunkBytes(kWidth, kHeight, 10),
                                   channelName(kVideoPrefix, port).c_str()) &&
                        audio.open(kPatternAudioSize.numChunks, kPatternAudioSize.chunkBytes,
                                   channelName(kAudioPrefix, port).c_str()) &&
                        captions.open(kPatternCaptionSize.numChunks, kPatternCaptionSize.chunkBytes,
                                      channelName(kCaptionPrefix, port).c_str()) &&
                        teletext.open(kPatternTeletextSize.numChunks, kPatternTeletextSize.chunkBytes,
                                      channelName(kTeletextPrefix, port).c_str());
    if (!stopEvent.valid() || !opened) {
        std::cout << "fail" << std::endl;
        return 1;
    }
    std::cout << "ready" << std::endl;
    for (std::int64_t frame = 0; stopEvent.wait(std::chrono::milliseconds(0)) != ipc::WaitResult::Acquired;
         ++frame) {
        publishAudio(audio, frame);
        publishVideo(video, frame);
        publishTeletext(teletext, frame);
        publishCaptions(captions, frame);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    std::cout << "stopped" << std::endl;
    return 0;
}
