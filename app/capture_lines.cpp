#include "app/capture_lines.h"

namespace ovtx::app::sdi_tap::v1 {

namespace device = system::sdi::deltacast_io::v1;

namespace {

constexpr std::uint32_t kTeletextLines = 16;
constexpr std::uint32_t kFirstField1TeletextLine = 7;
constexpr std::uint32_t kFirstField2TeletextLine = 320;

}  // namespace

device::VbiLineTable captureLineTable(const encoding::sdi::sdi_common::v2::SdiFormatInfo& info) {
    device::VbiLineTable table{};
    if (!isStandardDefinition(info.boardStandard)) {
        table[0] = {info.ancLine, 1, 0};
        return table;
    }
    table[0] = {info.wssLine, 0, 1};
    for (std::uint32_t i = 0; i < kTeletextLines; ++i) {
        table[1 + i] = {kFirstField1TeletextLine + i, 0, 1};
        table[1 + kTeletextLines + i] = {kFirstField2TeletextLine + i, 0, 1};
    }
    return table;
}

std::int32_t lineIndex(const device::VbiLineTable& table, std::uint32_t line) {
    std::int32_t found = -1;
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (table[i].line == line) {
            found = static_cast<std::int32_t>(i);
        }
    }
    return found;
}

}  // namespace ovtx::app::sdi_tap::v1
