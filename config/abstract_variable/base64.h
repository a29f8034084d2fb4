// Base64 for the bytes of data and file objects in JSON values.
//
// One implementation serves every binary value of the variable tree: the standard alphabet of
// RFC 4648 with "=" padding. The decoder skips every character outside the alphabet ("=", white
// space, line breaks ...), so text that a client has wrapped or padded anywhere decodes the same:
//
//   std::string text = base64Encode(bytes.data(), bytes.size());   // "AQID" for {1, 2, 3}
//   std::vector<std::uint8_t> back = base64Decode("AQ\r\nID");      // {1, 2, 3}
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

// Encodes `size` bytes; `lineBreak`, when not empty, follows every 64 output characters.
std::string base64Encode(const std::uint8_t* bytes, std::size_t size, std::string_view lineBreak = {});

// Decodes the characters of the alphabet in `text` and skips all others. A final group of two or
// three characters gives one or two bytes; a lone final character gives none.
std::vector<std::uint8_t> base64Decode(std::string_view text);

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
