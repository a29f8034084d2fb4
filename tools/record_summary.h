// One text line per record of a run's channels, as simulcast_follow prints them.
//
//   video seq=12 disc=0 start=4400000 end=4800000 magic=0x4A9E mismatch=0 rdisc=0 aspect=16:9
//   audio seq=12 disc=0 start=4400000 end=4800000 magic=0x5541 rdisc=0 pairs=1/1920/1,...
//   captions seq=12 disc=0 start=4400000 end=4800000 count=20
//   teletext seq=12 disc=0 start=4400000 end=4800000 magic=0x5454 desc=7 data=47
//
// `disc` is the transport's discontinuity, `rdisc` the record's own flag; an audio pair reads
// present/sample count/sampling code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace ovtx::tools::simulcast_follow::v1 {

enum class RecordKind { Video, Audio, Captions, Teletext, Raw };

// The kind of record a channel carries, from its name's prefix; Raw for a name of no run.
RecordKind kindOfChannel(std::string_view channelName);
// "video", "audio", "captions", "teletext" or "raw".
std::string_view kindName(RecordKind kind);
// The kind named by `text` (as kindName gives it); Raw and false for an unknown text.
bool parseKind(std::string_view text, RecordKind& kind);

// A field of a record read out of the chunk's bytes by copy: a chunk buffer need not suit the
// record's alignment.
template <typename Field>
Field recordField(const std::uint8_t* chunk, std::size_t offset) {
    Field value;
    std::memcpy(&value, chunk + offset, sizeof value);
    return value;
}

// The line for one chunk of `bytes` bytes: kind, sequence, discontinuity and the record's summary.
std::string summariseRecord(RecordKind kind, std::int64_t sequence, bool discontinuity,
                            const std::uint8_t* chunk, std::size_t bytes);

}  // namespace ovtx::tools::simulcast_follow::v1
