// The JSON values of the abstract variables.
//
// Any object of the variable tree can be turned into a JSON value and back. Both directions walk
// the object and its type record together: the type decides the shape, the object provides the
// data, and a disagreement between the two is an error, never a coercion.
//
//   Json::Value value = SerializeValueToJson(root.get(), type, {"function"});  // functions as null
//   std::string text = SerializeValueToStyledJson(root.get(), type, {});       // an answer's body
//   value["Level"] = 3;
//   std::string skipped = UnserializeValueFromJson(value, root.get(), type, /*allowPartial=*/true,
//                                                  /*parallel=*/true);
//
// Shapes: leaves as JSON integers, booleans and strings; an enum as its choice's name; a struct as
// an object with one member per child; a vector as an array; a map as an object keyed by the id
// (its decimal text for "map"); a constructable map as an object keyed by the decimal id whose
// members hold "_configuration_" and "_state_"; a union as {"_type_": name, "_value_": {name:
// value, ...}}; a file as {"MimeType": text, "Data": base64}; data as base64 text; a read-only
// wrapper as the value it wraps; a function as null.
//
// Unserialising writes as it goes: a failure leaves earlier writes in place. A caller that needs
// all or nothing unserialises into a scratch copy and copies it over with `ValueRecopier`.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "config/abstract_variable/abstract_object.h"

namespace ovtx::config::abstract_variable::lib_abstract_variable::v2 {

// The JSON value of `object` as `type` describes it. An object whose variety name ("function",
// "data", ...) is in `filter` becomes null, at any depth; a struct keeps the member. Fails with
// "Cannot serialize object : given type does not match the given object" where type and object
// disagree.
Json::Value SerializeValueToJson(IAbstractObject* object, const AbstractType& type,
                                 const std::vector<std::string>& filter);

// The same value as styled JSON text, byte for byte what Json::StyledWriter writes for
// `SerializeValueToJson(object, type, filter)`, without building the Json::Value: the text of a
// REST answer.
std::string SerializeValueToStyledJson(IAbstractObject* object, const AbstractType& type,
                                       const std::vector<std::string>& filter);

// Writes `json` into `object` as `type` describes it and returns the log of what was skipped,
// empty after a clean run. With `allowPartial` missing and unknown struct members, read-only
// values, int32 values that are not plain integers and missing union members are skipped and
// logged; without it they fail. With `parallel` the outermost constructable map unserialises its
// elements on one thread per processor. JSON of the wrong kind fails with "Cannot unserialize json:
// incorrect type".
std::string UnserializeValueFromJson(const Json::Value& json, IAbstractObject* object,
                                     const AbstractType& type, bool allowPartial, bool parallel);

// The size of a vector, looking through read-only wrappers; "Operation not supported" otherwise.
Json::Value SerializeSizeToJson(IAbstractObject* object);

// The ids of a "map" or a constructable map as a JSON array, looking through read-only wrappers.
// A "map_str" and every other kind fail with "Operation not supported".
Json::Value SerializeElementIdsToJson(IAbstractObject* object);

}  // namespace ovtx::config::abstract_variable::lib_abstract_variable::v2
