// The heap: objects that clients ask the service to keep, each under an id of its own.
//
// A client makes a heap instance from a JSON body (`POST ?heap/new` with {"type": <type
// description>, "value": <value>}) or keeps the result of a call (`?call&return_format=HEAP`),
// then reads and writes it like a variable of the tree (`?heap/instances/<id>/<path>`), and drops
// it with `POST ?heap/delete` and the id as the body. Ids start at 0 and are never reused. The heap
// holds at most one more instance than its capacity: a new instance first pushes out the oldest
// ones while there are more than `capacity`.
//
//   Heap heap(15);
//   std::int32_t id = heap.add(type, value);      // a deep copy of `value`
//   ObjectFactory instance = heap.instance(id);   // "Id '7' does not exist in the heap" if gone
//
// The heap takes no lock: the service keeps it behind a `SharedSyncAccessor` and holds it
// exclusively for the whole of a request that uses it.
#pragma once

#include <json/value.h>

#include <cstdint>

#include "config/abstract_variable/abstract_object.h"
#include "cpp_utils/constructable_object_map/constructable_object_map.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {

class Heap {
  public:
    explicit Heap(std::int32_t capacity);

    // Keeps a copy of `value`, an object of `type`; returns the new id.
    std::int32_t add(const config::abstract_variable::lib_abstract_variable::v2::AbstractType& type,
                     config::abstract_variable::lib_abstract_variable::v2::IAbstractObject& value);
    // Makes an instance from {"type": <type description>, "value": <value>} ("value" may be left out
    // for the type's default value); returns the new id.
    std::int32_t addFromJson(const Json::Value& description);
    // Fails with "Id '<id>' does not exist in the heap".
    void remove(std::int32_t id);
    config::abstract_variable::lib_abstract_variable::v2::ObjectFactory instance(std::int32_t id) const;

    std::size_t size() const { return m_instances.size(); }

  private:
    using Instances = cpp_utils::constructable_object_map::v2::ConstructableObjectMap<
        config::abstract_variable::lib_abstract_variable::v2::AbstractType,
        config::abstract_variable::lib_abstract_variable::v2::ObjectFactory,
        cpp_utils::constructable_object_map::v2::NeverClash>;

    // Makes room for one more instance.
    void pushOutOldest();
    void checkPresent(std::int32_t id) const;

    std::int32_t m_capacity;
    Instances m_instances;
};

}  // namespace ovtx::network::restful_web_service_request_handler::v0
