// The ancillary steps of a slot: teletext, closed captions and wide-screen signalling, each filled
// by its own unit (teletext_extraction.h, caption_extraction.h, wss_reading.h).
#include "app/sdi_tap.h"

namespace ovtx::app::sdi_tap::v1 {

namespace records = simulcast::capture_records::v1;
using records::RunChannel;

void SdiTap::extractTeletext(DeviceHandle slot, std::int64_t start, std::int64_t end) {
    auto& writer = m_objects.writer(RunChannel::Teletext);
    auto* record = static_cast<records::TeletextRecord*>(writer.beginChunk());
    if (record == nullptr) {
        return;
    }
    m_teletext.extract(slot, m_info.boardStandard, m_vbiLines, *record, start, end);
    writer.commitChunk();
}

void SdiTap::extractCaptions(DeviceHandle slot, std::int64_t start, std::int64_t end) {
    auto& writer = m_objects.writer(RunChannel::Caption);
    auto* record = static_cast<records::CaptionRecord*>(writer.beginChunk());
    if (record == nullptr) {
        return;
    }
    m_captions.extract(slot, m_info.boardStandard, *record, start, end);
    writer.commitChunk();
}

AspectRatio SdiTap::readWss(DeviceHandle slot) {
    return readWssAspect(m_api, m_report, slot, m_vbiLines, m_wssLineIndex, m_wssAspect);
}

}  // namespace ovtx::app::sdi_tap::v1
