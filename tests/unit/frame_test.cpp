// The frame's pure parts: the growing text, numbers, credentials, waiting times.
#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <string>
#include <vector>

#include "frame/access_control.h"
#include "frame/control_queue.h"
#include "frame/numbers.h"
#include "frame/text_buffer.h"

namespace psia {
namespace {

std::string text_of(const TextBuffer& buffer) {
  return {buffer.data(), buffer.length()};
}

std::string repeated(int count, const std::string& text) {
  std::string result;
  for (int i = 0; i < count; ++i)
    result += text;
  return result;
}

TEST(TextBuffer, GrowsInStepsOnlyWhenAnAppendNoLongerFits) {
  TextBuffer buffer;
  buffer.append(std::string(1024, 'a').c_str());
  EXPECT_EQ(buffer.capacity(), 1024U);
  buffer.append("x");
  EXPECT_EQ(buffer.capacity(), 2048U);
  buffer.append("<a>", std::string(5112, 'v').c_str(), "</a>");  // to the last byte of a step
  EXPECT_EQ(text_of(buffer), std::string(1024, 'a') + "x<a>" + std::string(5112, 'v') + "</a>");
  EXPECT_EQ(buffer.capacity(), 6144U);
}

TEST(Numbers, ConvertLikeThe32BitTarget) {
  std::istringstream cases(
      "x 0 -7 -7 +12abc 12 0x10 0 010 10 2147483648 2147483647 -99999999999999999999999 -2147483648");
  std::string text;
  for (std::int32_t value = 0; cases >> text >> value;)
    EXPECT_EQ(to_int32(text.c_str()), value) << text;
  EXPECT_EQ(to_int32(""), 0);
  EXPECT_EQ(to_int32(" \t-7"), -7);
  EXPECT_EQ(wrapping_multiply(2147483647, 100), -100);
}

TEST(Credentials, DecodeInAllTheirForms) {
  // 40 times 'u', a colon, 40 times 'p': "dXV1" is "uuu", "dTpw" "u:p", "cHBw" "ppp".
  const std::string too_long = "Basic " + repeated(13, "dXV1") + "dTpw" + repeated(13, "cHBw");
  for (const auto& [header, user, password] : std::vector<std::array<std::string, 3>>{
           {"Basic YWxpY2U6c2VjcmV0", "alice", "secret"},
           {"Basic YWRtaW4=", "admin", ""},                      // no colon
           {"Digestx", "", ""},                                  // one character of base 64 gives no byte
           {"Bearer", "", ""},                                   // nothing behind the scheme
           {"Bas", "", ""},                                      // shorter than a scheme word
           {"Basic YWxpY2U6YWJjOmQ=", "ali", "d"},               // alice:abc:d
           {"Basic YWxpY2U6YTpiOmM=", "a", "c"},                 // alice:a:b:c
           {"Basic YWxp Y2U6\r\nc2Vj*cmV0", "alice", "secret"},  // foreign characters are skipped
           {"Basic YWRtaW46\xff\x80", "admin", ""},
           {"Basic YWRtaW4AeDpwdw==", "admin", "pw"},  // admin\0x:pw
           {too_long, std::string(31, 'u'), std::string(31, 'p')},
           // 127 decoded bytes count
           {"Basic " + repeated(41, "dXV1") + "dTpwcHBw", std::string(31, 'u'), "pp"}}) {
    const Credentials credentials = decode_credentials(header.c_str());
    EXPECT_EQ(credentials.user.c_str(), user) << header;
    EXPECT_EQ(credentials.password.c_str(), password) << header;
  }
}

TEST(ControlMessage, WaitsByCommandCode) {
  for (const int command : {9, 10, 11, 12, 22})
    EXPECT_EQ(reply_poll_count(command), 1800) << command;
  EXPECT_EQ(reply_poll_count(23), 300);
  for (const int command : {1, 8, 13, 21, 24, 37, -1})
    EXPECT_EQ(reply_poll_count(command), 50) << command;
}

}  // namespace
}  // namespace psia
