// The pure parts of core/: numbers, credentials.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "core/access_control.h"
#include "core/numbers.h"

namespace psia {
namespace {

TEST(Numbers, EndAtTheFirstOtherCharacterAndSaturateAt32Bits) {
  EXPECT_EQ(to_int32("+010abc"), 10);
  EXPECT_EQ(to_int32("-2147483649"), INT32_MIN);
  EXPECT_EQ(to_int32("99999999999999999999999"), INT32_MAX);
}

TEST(Numbers, AreMultipliedModulo2To32) {
  EXPECT_EQ(wrapping_multiply(INT32_MAX, 100), -100);
}

// Credentials that a user of the camera may have are tested with the service.

void expect_credentials(const std::string& header, const std::string& user, const std::string& password) {
  const Credentials credentials = decode_credentials(header.c_str());
  EXPECT_EQ(credentials.user.c_str(), user);
  EXPECT_EQ(credentials.password.c_str(), password);
}

TEST(Credentials, HoldAnyByteButEndAtAZero) {
  expect_credentials("Basic x", "", "");                        // no whole byte
  expect_credentials("Basic /+86", "\xff\xef", "");             // FF EF ':'
  expect_credentials("Basic YWRtaW4AeDpwdw==", "admin", "pw");  // admin\0x:pw
}

}  // namespace
}  // namespace psia
