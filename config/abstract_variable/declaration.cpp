#include "config/abstract_variable/declaration.h"

#include <functional>

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

Declaration<std::vector<std::uint8_t>> declareData() {
    return Declaration<std::vector<std::uint8_t>>(
        [](const std::shared_ptr<std::vector<std::uint8_t>>& data) -> std::unique_ptr<IAbstractObject> {
            return dataOver(data);
        },
        DataType{});
}

namespace detail {

std::mutex& tableLockFor(const void* map) {
    constexpr std::size_t kStripes = 64;
    static std::array<std::mutex, kStripes> locks;
    return locks[std::hash<const void*>{}(map) % kStripes];
}

}  // namespace detail

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
