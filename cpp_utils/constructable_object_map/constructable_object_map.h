// A map whose elements get integer ids handed out by the map itself.
//
// Sessions and heap instances are kept in a `ConstructableObjectMap`: the caller gives a
// configuration, the map builds the element's state from it with its element constructor and
// answers with a fresh id. Ids grow and are never reused while a higher one was handed out, and a
// modification counter tells watchers that the set of elements changed:
//
//   ConstructableObjectMap<EmptyConfig, Session> sessions(
//       [](const EmptyConfig&, std::int32_t id) { return Session(id); });
//   std::int32_t id = sessions.add(EmptyConfig{});
//   sessions.get(id).second.touch();
//   sessions.remove(id);
//
// Configurations are unique within one map unless their type says otherwise: the `Clash`
// predicate decides whether two configurations count as equal. `EmptyConfig` never clashes, so an
// `EmptyConfig` map holds any number of elements; pass `NeverClash` for configuration types whose
// equal values may coexist (heap instances of one type, for example).
//
// The map takes no lock: whoever shares it between threads guards it.
#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

#include "cpp_utils/exception_utils/exception_utils.h"

namespace ovtx::cpp_utils::constructable_object_map::v2 {

struct ConstructableObjectMapTag;
// Failures of id and configuration rules.
using ConstructableObjectMapException = exception_utils::v1::ExceptionTemplate<ConstructableObjectMapTag>;

// The configuration of elements that need none.
struct EmptyConfig {};

// Configurations clash when they compare equal.
template <typename Config>
struct ConfigurationsClash {
    bool operator()(const Config& a, const Config& b) const {
        if constexpr (std::equality_comparable<Config>) {
            return a == b;
        } else {
            return false;
        }
    }
};

template <>
struct ConfigurationsClash<EmptyConfig> {
    bool operator()(const EmptyConfig&, const EmptyConfig&) const { return false; }
};

// Predicate for maps whose equal configurations may coexist.
struct NeverClash {
    template <typename Config>
    bool operator()(const Config&, const Config&) const {
        return false;
    }
};

template <typename Config, typename State, typename Clash = ConfigurationsClash<Config>>
class ConstructableObjectMap {
  public:
    using ElementConstructor = std::function<State(const Config&, std::int32_t id)>;
    using Element = std::pair<Config, State>;

    explicit ConstructableObjectMap(ElementConstructor constructor) : m_constructor(std::move(constructor)) {}

    // Inserts an element under the next free id and returns that id.
    std::int32_t add(Config configuration) {
        const std::int32_t id = m_nextId;
        insert(id, std::move(configuration));
        ++m_nextId;
        return id;
    }

    // Inserts an element under a chosen id; the next free id moves above it if needed.
    void add(std::int32_t id, Config configuration) {
        if (m_elements.contains(id)) {
            throw ConstructableObjectMapException("such id already exists");
        }
        insert(id, std::move(configuration));
        if (m_nextId <= id) {
            m_nextId = id + 1;
        }
    }

    void remove(std::int32_t id) {
        if (m_elements.erase(id) == 0) {
            throw ConstructableObjectMapException("such id does not exist");
        }
        ++m_modificationCounter;
    }

    Element& get(std::int32_t id) { return find(id); }
    const Element& get(std::int32_t id) const { return const_cast<ConstructableObjectMap*>(this)->find(id); }
    bool contains(std::int32_t id) const { return m_elements.contains(id); }

    // Ids in ascending order.
    std::vector<std::int32_t> ids() const {
        std::vector<std::int32_t> result;
        result.reserve(m_elements.size());
        for (const auto& [id, element] : m_elements) {
            result.push_back(id);
        }
        return result;
    }

    std::size_t size() const { return m_elements.size(); }
    std::int32_t nextId() const { return m_nextId; }
    // Grows by one on every add and every remove.
    std::int32_t modificationCounter() const { return m_modificationCounter; }

    const std::map<std::int32_t, Element>& elements() const { return m_elements; }

  private:
    void insert(std::int32_t id, Config configuration) {
        for (const auto& [otherId, element] : m_elements) {
            if (Clash{}(element.first, configuration)) {
                throw ConstructableObjectMapException(
                    "An element with such configuration is already in the map");
            }
        }
        State state = m_constructor(configuration, id);
        m_elements.emplace(id, Element(std::move(configuration), std::move(state)));
        ++m_modificationCounter;
    }

    Element& find(std::int32_t id) {
        auto found = m_elements.find(id);
        if (found == m_elements.end()) {
            throw ConstructableObjectMapException("such id does not exist");
        }
        return found->second;
    }

    std::int32_t m_nextId = 0;
    ElementConstructor m_constructor;
    std::map<std::int32_t, Element> m_elements;
    std::int32_t m_modificationCounter = 0;
};

}  // namespace ovtx::cpp_utils::constructable_object_map::v2
