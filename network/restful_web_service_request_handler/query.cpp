#include "network/restful_web_service_request_handler/query.h"

#include <array>
#include <charconv>
#include <functional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace ovtx::network::restful_web_service_request_handler::v0 {

using http_server::v3::HttpVerb;

namespace {

constexpr std::array<std::pair<std::string_view, QueryCommand>, 10> kCommandWords = {{
    {"desc", QueryCommand::desc},
    {"get", QueryCommand::get},
    {"set", QueryCommand::set},
    {"call", QueryCommand::call},
    {"insert", QueryCommand::insert},
    {"size", QueryCommand::size},
    {"elements", QueryCommand::elements},
    {"clear", QueryCommand::clear},
    {"load", QueryCommand::load},
    {"resize", QueryCommand::resize},
}};

bool formatWord(const std::string& text, DataFormat& format) {
    if (text == "raw") {
        format = DataFormat::raw;
    } else if (text == "multipart_form-data") {
        format = DataFormat::multipartFormData;
    } else if (text == "HEAP") {
        format = DataFormat::heap;
    } else {
        return false;
    }
    return true;
}

// "=<value>" is the only text allowed behind the key of a value option.
bool assignValue(const std::string& key, const std::string& text, std::string& value) {
    if (text.empty() || text.front() != '=' || text.find('\n') != std::string::npos) {
        throw std::runtime_error("Option " + key + " should be followed by '='");
    }
    value = text.substr(1);
    return true;
}

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

struct KeyedOption {
    std::string_view key;
    std::function<bool(Query&, const std::string& key, const std::string& text)> handler;
    bool Query::*flag;
};

const std::array<KeyedOption, 9>& keyedOptions() {
    static const std::array<KeyedOption, 9> kTable = {{
        {"heap",
         [](Query& query, const std::string&, const std::string& text) {
             auto request = parseHeapRequest(text);
             if (request) {
                 query.heap = std::move(*request);
             }
             return request.has_value();
         },
         &Query::heapGiven},
        {"format=",
         [](Query& query, const std::string&, const std::string& text) {
             return formatWord(text, query.format);
         },
         &Query::formatGiven},
        {"return_format=",
         [](Query& query, const std::string&, const std::string& text) {
             return formatWord(text, query.returnFormat);
         },
         &Query::returnFormatGiven},
        {"parameter_format=",
         [](Query& query, const std::string&, const std::string& text) {
             return formatWord(text, query.parameterFormat);
         },
         &Query::parameterFormatGiven},
        {"add_monitored_variable",
         [](Query& query, const std::string& key, const std::string& text) {
             return assignValue(key, text, query.addMonitoredVariable);
         },
         &Query::addMonitoredVariableGiven},
        {"remove_monitored_variable",
         [](Query& query, const std::string& key, const std::string& text) {
             return assignValue(key, text, query.removeMonitoredVariable);
         },
         &Query::removeMonitoredVariableGiven},
        {"session",
         [](Query& query, const std::string& key, const std::string& text) {
             return assignValue(key, text, query.session);
         },
         &Query::sessionGiven},
        {"filter=",
         [](Query& query, const std::string&, const std::string& text) {
             if (text.empty() || text.find('\n') != std::string::npos) {
                 return false;
             }
             query.filters.push_back(text);
             return true;
         },
         &Query::filtersGiven},
        {"postprocessing=",
         [](Query& query, const std::string&, const std::string& text) {
             if (text != "md5") {
                 return false;
             }
             query.postProcessing = PostProcessing::md5;
             return true;
         },
         &Query::postProcessingGiven},
    }};
    return kTable;
}

void parseKeyedOption(Query& query, const std::string& option) {
    for (const KeyedOption& entry : keyedOptions()) {
        if (option.starts_with(entry.key)) {
            const std::string key(entry.key);
            if (entry.handler(query, key, option.substr(key.size()))) {
                query.*entry.flag = true;
            }
        }
    }
}

void parseWord(Query& query, const std::string& word) {
    if (word == "new_session") {
        query.newSession = true;
    } else if (word == "remove_session") {
        query.removeSession = true;
    } else if (word == "get_change_log") {
        query.getChangeLog = true;
    } else {
        query.command = commandOfWord(word);
        query.commandGiven = true;
    }
}

}  // namespace

QueryCommand commandOfWord(const std::string& word) {
    for (const auto& [text, command] : kCommandWords) {
        if (word == text) {
            return command;
        }
    }
    throw std::runtime_error("unknown query: " + word);
}

std::vector<std::string> splitQuery(const std::string& queryString) {
    std::vector<std::string> options;
    if (queryString.empty()) {
        return options;
    }
    std::size_t start = 1;
    while (start <= queryString.size()) {
        std::size_t end = queryString.find('&', start);
        if (end == std::string::npos) {
            end = queryString.size();
        }
        if (end > start) {
            options.push_back(queryString.substr(start, end - start));
        }
        start = end + 1;
    }
    return options;
}

std::optional<HeapRequest> parseHeapRequest(const std::string& text) {
    if (text == "/new") {
        return HeapNew{};
    }
    if (text == "/delete") {
        return HeapDelete{};
    }
    constexpr std::string_view kInstances = "/instances/";
    if (!text.starts_with(kInstances)) {
        return std::nullopt;
    }
    const char* digits = text.data() + kInstances.size();
    const char* end = text.data() + text.size();
    HeapInstance instance;
    const auto [behind, error] = std::from_chars(digits, end, instance.id);
    if (error != std::errc() || behind == digits) {
        return std::nullopt;
    }
    std::string path(behind, end);
    replaceAll(path, "/.", "");
    replaceAll(path, ".", "");
    replaceAll(path, "//", "/");
    const std::size_t question = path.find('?');
    if (question != std::string::npos) {
        instance.command = commandOfWord(path.substr(question + 1));
        instance.commandGiven = true;
        path.resize(question);
    }
    instance.path = std::move(path);
    return instance;
}

Query parseQuery(const std::string& queryString) {
    Query query;
    const std::vector<std::string> options = splitQuery(queryString);
    for (auto option = options.rbegin(); option != options.rend(); ++option) {
        if (option->find_first_of("=/") != std::string::npos) {
            parseKeyedOption(query, *option);
        } else {
            parseWord(query, *option);
        }
    }
    return query;
}

void applyVerbDefaults(Query& query, HttpVerb verb) {
    if (verb == HttpVerb::Head) {
        verb = HttpVerb::Get;  // the same answer, without its body
    }
    if (!query.commandGiven) {
        if (verb == HttpVerb::Post) {
            query.command = QueryCommand::load;
        } else if (verb == HttpVerb::Get) {
            query.command = QueryCommand::get;
        }
    }
    if (query.formatGiven) {
        if (verb == HttpVerb::Post) {
            query.parameterFormat = query.format;
        } else if (verb == HttpVerb::Get) {
            query.returnFormat = query.format;
        }
    }
}

int sessionCommandCount(const Query& query) {
    return int{query.newSession} + int{query.removeSession} + int{query.addMonitoredVariableGiven} +
           int{query.removeMonitoredVariableGiven} + int{query.getChangeLog};
}

}  // namespace ovtx::network::restful_web_service_request_handler::v0
