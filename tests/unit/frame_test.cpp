// The frame's pure parts: numbers, credentials.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "frame/access_control.h"
#include "frame/numbers.h"

namespace psia {
namespace {

TEST(Numbers, ConvertLikeThe32BitTarget) {
  EXPECT_EQ(to_int32("+010abc"), 10);
  EXPECT_EQ(to_int32("-2147483649"), -2147483647 - 1);
  EXPECT_EQ(to_int32("99999999999999999999999"), 2147483647);
  EXPECT_EQ(wrapping_multiply(2147483647, 100), -100);
}

// Those that a user of the camera may have are tested with the service.
TEST(Credentials, DecodeInOddForms) {
  for (const auto& [header, user, password] : std::vector<std::array<std::string, 3>>{
           {"Digestx", "", ""},  // one character of base 64 gives no byte
           {"Basic /+86", "\xff\xef", ""},
           {"Basic YWRtaW4AeDpwdw==", "admin", "pw"},  // admin\0x:pw
           // Of 123 times 'U' and "u:pppp" 127 bytes count.
           {"Basic " + std::string(164, 'V') + "dTpwcHBw", std::string(31, 'U'), "pp"}}) {
    const Credentials credentials = decode_credentials(header.c_str());
    EXPECT_EQ(credentials.user.c_str(), user) << header;
    EXPECT_EQ(credentials.password.c_str(), password) << header;
  }
}

}  // namespace
}  // namespace psia
