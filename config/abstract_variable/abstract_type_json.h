// The JSON form of type records.
//
// A client asks what a resource looks like, and may describe a type itself to create a heap
// variable. Every description is a JSON object whose member "variety" holds the variety name;
// containers describe their parts in further members:
//
//   {"variety": "vector", "element": {"variety": "int32"}}
//
//   Json::Value json = SerializeTypeToJson(type);
//   AbstractType back = UnserializeTypeFromJson(json);   // equal to `type`
#pragma once

#include <json/value.h>

#include "config/abstract_variable/abstract_type.h"

namespace ovtx::config::abstract_variable::abstract_type::v1 {

// Writes "variety" first, then the record's members; lists keep their order.
Json::Value SerializeTypeToJson(const AbstractType& type);

// Reads a description back. An unknown or absent variety fails with "Could not unserialize json :
// <variety> is an unknown variety"; absent lists count as empty; a union's "available_types" is
// ignored.
AbstractType UnserializeTypeFromJson(const Json::Value& json);

}  // namespace ovtx::config::abstract_variable::abstract_type::v1
