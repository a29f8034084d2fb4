// Runs an action and checks that it fails with exactly the given text.
//
//   expectFailure([&] { structure->getChild("Nope"); }, "No such variable: Nope");
#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <functional>
#include <string>

namespace ovtx::test_support::v1 {

inline void expectFailure(const std::function<void()>& action, const std::string& text) {
    try {
        action();
        ADD_FAILURE() << "no failure, expected: " << text;
    } catch (const std::exception& failure) {
        EXPECT_EQ(failure.what(), text);
    }
}

}  // namespace ovtx::test_support::v1
