// The pure parts of core/: numbers, credentials.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "core/access_control.h"
#include "core/numbers.h"

namespace psia {
namespace {

constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kSmallest = std::numeric_limits<std::int32_t>::min();

TEST(Numbers, AreDecimalAndEndAtTheFirstOtherCharacter) {
  EXPECT_EQ(to_int32("+010abc"), 10);
}

TEST(Numbers, SaturateAt32Bits) {
  EXPECT_EQ(to_int32("-2147483649"), kSmallest);
  EXPECT_EQ(to_int32("99999999999999999999999"), kLargest);
}

TEST(Numbers, AreMultipliedModulo2To32) {
  EXPECT_EQ(wrapping_multiply(kLargest, 100), -100);
}

// Credentials that a user of the camera may have are tested with the service.

void expect_credentials(const std::string& header, const std::string& user, const std::string& password) {
  const Credentials credentials = decode_credentials(header.c_str());
  EXPECT_EQ(credentials.user.c_str(), user);
  EXPECT_EQ(credentials.password.c_str(), password);
}

TEST(Credentials, AreEmptyWhenTheBase64TextHasOneCharacter) {
  expect_credentials("Basic x", "", "");
}

TEST(Credentials, HoldAnyByte) {
  expect_credentials("Basic /+86", "\xff\xef", "");  // FF EF ':'
}

TEST(Credentials, EndAtAZeroByte) {
  expect_credentials("Basic YWRtaW4AeDpwdw==", "admin", "pw");  // admin\0x:pw
}

TEST(Credentials, AreTruncatedTo127Bytes) {
  std::string header = "Basic ";
  for (int bytes = 0; bytes < 123; bytes += 3)
    header += "VVVV";    // UUU
  header += "dTpwcHBw";  // u:pppp, of which the last two exceed 127 bytes
  expect_credentials(header, std::string(31, 'U'), "pp");
}

}  // namespace
}  // namespace psia
