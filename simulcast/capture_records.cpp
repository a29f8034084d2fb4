#include "simulcast/capture_records.h"

#include "simulcast/simulcast_params.h"

namespace ovtx::simulcast::capture_records::v1 {

std::string channelName(std::string_view prefix, std::string_view portName) {
    return simulcast_channel::v1::channelObjectName(prefix, portName);
}

}  // namespace ovtx::simulcast::capture_records::v1
