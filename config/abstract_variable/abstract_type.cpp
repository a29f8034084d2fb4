#include "config/abstract_variable/abstract_type.h"

#include <array>
#include <stdexcept>

namespace ovtx::config::abstract_variable::abstract_type::v1 {

void throwWrongAlternative() {
    throw AbstractTypeException("cannot convert union to given type");
}

const std::string& varietyName(std::size_t tag) {
    static const std::array<std::string, std::variant_size_v<TypeVariant>> kNames = {
        "int32",     "int64",   "bool",
        "string",    "struct",  "vector",
        "map",       "map_str", "constructable_object_map",
        "function",  "file",    "data",
        "read_only", "enum",    "union"};
    if (tag >= kNames.size()) {
        throw AbstractTypeException("internal assertion failure");
    }
    return kNames[tag];
}

}  // namespace ovtx::config::abstract_variable::abstract_type::v1
