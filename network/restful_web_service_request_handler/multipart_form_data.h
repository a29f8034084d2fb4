// The data of a browser form: the content of a multipart/form-data body.
//
// A form upload sets a variable (a file, a string) with `?set&parameter_format=multipart_form-data`.
// The extractor takes the raw body as a sink and, when the body is complete (`close`), passes the
// data of the form's first part on to the target sink, without the part's boundary and headers:
//
//   auto extractor = newMultiPartFormDataParser(setRawValue(file));
//   extractor->send(body.data(), body.size());
//   extractor->close();   // the target gets the data and is closed in turn
//
// Failures: "Data is too small to be an html form." for a body under 2 bytes, and "multi part form
// data does not contain expected CRLF" when the part's data is not followed by CR LF and the next
// boundary. A boundary line longer than 100 bytes counts with its first 100 bytes.
#pragma once

#include <memory>

#include "cpp_utils/stream_io/stream_io.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {

std::unique_ptr<cpp_utils::stream_io::v1::IStreamSender> newMultiPartFormDataParser(
    std::unique_ptr<cpp_utils::stream_io::v1::IStreamSender> target);

}  // namespace ovtx::network::restful_web_service_request_handler::v0
