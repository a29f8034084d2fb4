#include "network/restful_web_service_request_handler/heap.h"

#include <stdexcept>

#include "config/abstract_variable/abstract_type_json.h"
#include "config/abstract_variable/object_construction.h"
#include "config/abstract_variable/value_json.h"
#include "config/abstract_variable/visitors.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {

using namespace config::abstract_variable::lib_abstract_variable::v2;

Heap::Heap(std::int32_t capacity)
    : m_capacity(capacity),
      m_instances([](const AbstractType& type, std::int32_t) { return newInstance(type); }) {}

void Heap::pushOutOldest() {
    while (m_instances.size() > static_cast<std::size_t>(std::max(m_capacity, 0))) {
        m_instances.remove(m_instances.elements().begin()->first);
    }
}

std::int32_t Heap::add(const AbstractType& type, IAbstractObject& value) {
    pushOutOldest();
    const std::int32_t id = m_instances.add(type);
    copyValue(value, *m_instances.get(id).second(), type);
    return id;
}

std::int32_t Heap::addFromJson(const Json::Value& description) {
    if (!description.isObject() || !description.isMember("type")) {
        throw std::runtime_error("A new heap instance is described by {\"type\": ..., \"value\": ...}");
    }
    const AbstractType type =
        config::abstract_variable::abstract_type::v1::UnserializeTypeFromJson(description["type"]);
    const ObjectFactory scratch = newInstance(type);
    const std::unique_ptr<IAbstractObject> value = scratch();
    if (description.isMember("value")) {
        UnserializeValueFromJson(description["value"], value.get(), type, false, false);
    }
    return add(type, *value);
}

void Heap::checkPresent(std::int32_t id) const {
    if (!m_instances.contains(id)) {
        throw std::runtime_error("Id '" + std::to_string(id) + "' does not exist in the heap");
    }
}

void Heap::remove(std::int32_t id) {
    checkPresent(id);
    m_instances.remove(id);
}

ObjectFactory Heap::instance(std::int32_t id) const {
    checkPresent(id);
    return m_instances.get(id).second;
}

}  // namespace ovtx::network::restful_web_service_request_handler::v0
