// Test helpers over the fixture tree: a child's type record and JSON text parsing.
//
//   const AbstractType& type = fixtureChildType("Points");   // the record of the root's child
//   Json::Value expected = parseJson(R"({"X": 1, "Y": 2})");
#pragma once

#include <gtest/gtest.h>
#include <json/reader.h>

#include <sstream>
#include <stdexcept>
#include <string>

#include "config/abstract_variable/testing/fixture_tree.h"

namespace ovtx::config::abstract_variable::testing::v1 {

inline const AbstractType& fixtureChildType(const std::string& name) {
    for (const auto& child : fixtureType().get<abstract_type::v1::StructType>().children) {
        if (child.name == name) {
            return *child.type;
        }
    }
    throw std::logic_error("no fixture child " + name);
}

inline Json::Value parseJson(const std::string& text) {
    Json::Value value;
    std::string errors;
    std::istringstream stream(text);
    if (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, &errors)) {
        ADD_FAILURE() << "bad JSON in test: " << errors;
    }
    return value;
}

}  // namespace ovtx::config::abstract_variable::testing::v1
