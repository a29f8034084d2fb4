#include "network/restful_web_service_request_handler/md5_text.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace ovtx::network::restful_web_service_request_handler::v0 {

std::string md5Text(std::string_view bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_md5(), nullptr) != 1) {
        throw std::runtime_error("MD5 digest failed");
    }
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * length);
    for (unsigned int index = 0; index < length; ++index) {
        text.push_back(kDigits[digest[index] >> 4]);
        text.push_back(kDigits[digest[index] & 0xf]);
    }
    return text;
}

}  // namespace ovtx::network::restful_web_service_request_handler::v0
