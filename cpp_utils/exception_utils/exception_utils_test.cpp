#include "cpp_utils/exception_utils/exception_utils.h"

#include <gtest/gtest.h>

namespace {

using ovtx::cpp_utils::exception_utils::v1::ExceptionTemplate;
using ovtx::cpp_utils::exception_utils::v1::OrvantaException;

struct File;
struct SdiTap;

TEST(ExceptionUtilsTest, TaggedExceptionsAreDistinctTypesOfOneFamily) {
    try {
        throw ExceptionTemplate<File>("Could not open x");
    } catch (const ExceptionTemplate<SdiTap>&) {
        FAIL() << "a File failure must not be caught as an SdiTap failure";
    } catch (const OrvantaException& e) {
        EXPECT_STREQ(e.what(), "Could not open x");
    }
}

TEST(ExceptionUtilsTest, FamilyIsCaughtAsStandardException) {
    try {
        throw ExceptionTemplate<SdiTap>(std::string("text"));
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "text");
    }
}

}  // namespace
