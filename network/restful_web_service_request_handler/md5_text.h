// The MD5 digest of bytes as 32 lower-case hexadecimal digits, as the REST answers and the change
// log of sessions carry it:
//
//   md5Text(bytes)   // "d41d8cd98f00b204e9800998ecf8427e" for no bytes
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ovtx::network::restful_web_service_request_handler::v0 {

std::string md5Text(std::string_view bytes);

}  // namespace ovtx::network::restful_web_service_request_handler::v0
