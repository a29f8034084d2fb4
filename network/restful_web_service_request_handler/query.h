// The query of a REST request: what to do with the variable that the path names.
//
// A request reads `http://<host>/sdi_tap/<port>/<variable path>?<option>&<option>...`. The options
// are words (`get`, `size`, `new_session`, ...) and keyed options (`format=raw`, `filter=function`,
// `session=3`, `heap/instances/2/X?get`, ...). `parseQuery` turns the query string into a `Query`:
//
//   Query query = parseQuery("?size&format=raw");     // command size, format raw
//   applyVerbDefaults(query, HttpVerb::Get);           // the return format becomes raw
//
// Options are taken from the last to the first, so of two single-valued options the leftmost
// wins (`?size&get` asks for the size). An option that holds "=" or "/" and matches no key is
// dropped without a word; an unknown word fails with "unknown query: <word>". Nothing is
// percent-decoded here.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "network/http_server/request.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {

enum class QueryCommand : std::int32_t {
    desc = 0,
    get = 1,
    set = 2,
    call = 3,
    insert = 4,
    size = 5,
    elements = 6,
    clear = 7,
    load = 8,
    resize = 9,
};

enum class DataFormat : std::int32_t {
    json = 0,
    raw = 1,
    multipartFormData = 2,
    heap = 3,
};

enum class PostProcessing : std::int32_t {
    none = 0,
    md5 = 1,
};

// The command of a word ("get", "size", ...); fails with "unknown query: <word>".
QueryCommand commandOfWord(const std::string& word);

// `?heap/new`: a value built from the JSON body gets an id in the heap.
struct HeapNew {};
// `?heap/instances/<id>/<path>[?<command>]`: a variable inside a heap instance.
struct HeapInstance {
    std::int32_t id = 0;
    std::string path;
    QueryCommand command = QueryCommand::get;
    bool commandGiven = false;
};
// `?heap/delete`: the instance whose id is the JSON body goes.
struct HeapDelete {};

using HeapRequest = std::variant<HeapNew, HeapInstance, HeapDelete>;

// What a query says, each item with the flag that tells whether it was given.
struct Query {
    HeapRequest heap;
    bool heapGiven = false;
    QueryCommand command = QueryCommand::get;
    bool commandGiven = false;
    DataFormat format = DataFormat::json;
    bool formatGiven = false;
    DataFormat returnFormat = DataFormat::json;
    bool returnFormatGiven = false;
    DataFormat parameterFormat = DataFormat::json;
    bool parameterFormatGiven = false;
    std::vector<std::string> filters;
    bool filtersGiven = false;
    PostProcessing postProcessing = PostProcessing::none;
    bool postProcessingGiven = false;
    bool newSession = false;
    bool removeSession = false;
    std::string addMonitoredVariable;
    bool addMonitoredVariableGiven = false;
    std::string removeMonitoredVariable;
    bool removeMonitoredVariableGiven = false;
    bool getChangeLog = false;
    std::string session;
    bool sessionGiven = false;
};

// The options of a query string: empty without a query, else the text behind the "?" split at
// "&" (empty options are left out).
std::vector<std::string> splitQuery(const std::string& queryString);

// Parses the options of `queryString` (as it stands in the request, from its "?" on).
Query parseQuery(const std::string& queryString);

// Parses the text behind the key "heap"; nothing when the option is to be dropped.
std::optional<HeapRequest> parseHeapRequest(const std::string& text);

// The defaults that depend on the verb: without a command POST loads and GET gets; `format=`
// stands for the parameter format of a POST and for the return format of a GET (and of a HEAD).
void applyVerbDefaults(Query& query, http_server::v3::HttpVerb verb);

// How many of the five session commands the query holds.
int sessionCommandCount(const Query& query);

}  // namespace ovtx::network::restful_web_service_request_handler::v0
