// The frame's pure parts: text, numbers, credentials, XML values, message records.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "frame/access_control.h"
#include "frame/control_queue.h"
#include "frame/numbers.h"
#include "frame/text_buffer.h"
#include "frame/xml.h"

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

TEST(TextBuffer, FoldsPairsOfPercentSignsAtEachPass) {
  for (const auto& [value, appended] : std::vector<std::array<std::string, 2>>{
           {"%", "%"}, {"%%", "%"}, {"%%%", "%%"}, {"%%%%", "%%"}, {"%s%n50%%%d", "%s%n50%%d"}}) {
    TextBuffer buffer;
    buffer.append(value.c_str());
    EXPECT_EQ(text_of(buffer), appended) << value;
  }
  TextBuffer joined;
  joined.append("a%");
  joined.append("%b");
  EXPECT_EQ(text_of(joined), "a%%b");
  joined.fold();
  EXPECT_EQ(text_of(joined), "a%b");
}

TEST(Numbers, ConvertLikeThe32BitTarget) {
  for (const auto& [text, value] :
       std::vector<std::pair<const char*, std::int32_t>>{{"", 0},
                                                         {"x", 0},
                                                         {" \t-7", -7},
                                                         {"+12abc", 12},
                                                         {"0x10", 0},
                                                         {"010", 10},
                                                         {"2147483648", 2147483647},
                                                         {"-2147483649", -2147483647 - 1},
                                                         {"99999999999999999999999", 2147483647}})
    EXPECT_EQ(to_int32(text), value) << text;
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

TEST(Base64, StoresNoMoreThanTheLimit) {
  char output[4] = {'-', '-', '-', '-'};
  EXPECT_EQ(decode_base64("YWxpY2U6c2VjcmV0", output, 3), 3U);
  EXPECT_EQ(std::string(output, 4), "ali-");
  EXPECT_EQ(decode_base64("/+8", output, 4), 2U);
  EXPECT_EQ(std::string(output, 2), "\xff\xef");
}

TEST(Xml, RefusesWhatIsNoDocumentOrDeclaresEntities) {
  prepare_xml();
  std::string bomb = "<!DOCTYPE a [<!ENTITY l0 \"lol\">";
  for (int i = 1; i < 30; ++i)
    bomb +=
        "<!ENTITY l" + std::to_string(i) + " \"" + repeated(4, "&l" + std::to_string(i - 1) + ";") + "\">";
  for (const std::string& text : std::vector<std::string>{
           "", "text", "<a>", "<a/><b/>", "<?xml version=\"1.0\"?>", "<a>&unknown;</a>",
           "<!DOCTYPE a [<!ENTITY e \"x\">]><a/>", "<!DOCTYPE a [<!ENTITY % p \"x\">]><a/>",
           "<!DOCTYPE a [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><a>&e;</a>", bomb + "]><a>&l29;</a>"}) {
    EXPECT_FALSE(XmlDocument::parse(text.c_str())) << text;
  }
  EXPECT_TRUE(XmlDocument::parse("<!DOCTYPE a SYSTEM \"http://127.0.0.1:9/a.dtd\"><a/>"));
}

TEST(ControlMessage, KeepsItsFieldsAtTheirPlaces) {
  ControlMessage message(Command::kTime);
  EXPECT_EQ(message.int_at(4), 6);
  message.put_int(12, -2);
  EXPECT_EQ(message.int_at(12), -2);
  message.put_int(4112, 0x01020304);
  EXPECT_EQ(message.text_at(4112), "\x04\x03\x02\x01");  // ends with the record
  message.put_text(16, 5, "abcdefgh");
  EXPECT_EQ(message.text_at(16), "abcd");
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
