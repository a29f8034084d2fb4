// The ancillary steps of a slot: teletext, closed captions and wide-screen signalling. Until the
// lines are read, every slot publishes an empty teletext record and a caption record without
// entries, and an SD slot keeps the last aspect ratio.
#include "app/sdi_tap.h"

namespace ovtx::app::sdi_tap::v1 {

namespace records = simulcast::capture_records::v1;
using records::RunChannel;

void SdiTap::extractTeletext(DeviceHandle /*slot*/, std::int64_t start, std::int64_t end) {
    auto& writer = m_objects.writer(RunChannel::Teletext);
    auto* record = static_cast<records::TeletextRecord*>(writer.beginChunk());
    if (record == nullptr) {
        return;
    }
    record->magic = records::kTeletextMagic;
    record->descriptorLength = 2;
    record->dataLength = 0;
    record->start = start;
    record->end = end;
    record->descriptor[0] = records::kTeletextDescriptorTag;
    record->descriptor[1] = 0;
    writer.commitChunk();
}

void SdiTap::extractCaptions(DeviceHandle /*slot*/, std::int64_t start, std::int64_t end) {
    auto& writer = m_objects.writer(RunChannel::Caption);
    auto* record = static_cast<records::CaptionRecord*>(writer.beginChunk());
    if (record == nullptr) {
        return;
    }
    record->start = start;
    record->end = end;
    record->count = 0;
    writer.commitChunk();
}

Aspect SdiTap::readWss(DeviceHandle /*slot*/) {
    return m_aspect;
}

}  // namespace ovtx::app::sdi_tap::v1
