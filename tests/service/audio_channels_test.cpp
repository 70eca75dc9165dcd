// The audio channel: what reading shows, what switching stores and tells the daemons.
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

constexpr const char* kUri = "/PSIA/System/Audio/channels/1";

class AudioChannelsTest : public RunningServiceTest {};

TEST_F(AudioChannelsTest, ReadsShowTheStoredFlag) {
  const std::string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n";
  for (const auto& [change, enabled] :
       std::vector<std::pair<std::string, std::string>>{{"update Audio set Enable=2", "true"},
                                                        {"update Audio set Enable=0", "false"},
                                                        {"delete from Audio", "false"}}) {
    run_sql(change);
    const std::string channel =
        R"(<AudioChannel version="1.0" xmlns="urn:psialliance-org"><id>1</id><enabled>)" + enabled +
        "</enabled><audioMode>listenonly</audioMode></AudioChannel>";
    EXPECT_EQ(get(kUri), document(declaration + channel)) << change;
    EXPECT_EQ(get("/PSIA/System/Audio/channels"),
              document(declaration + R"(<AudioChannelList version="1.0" xmlns="urn:psialliance-org">)" +
                       channel + "</AudioChannelList>"))
        << change;
  }
}

TEST_F(AudioChannelsTest, SwitchingStoresTheFlagAndSendsCommand3) {
  run_sql("update Audio set Codec=2");
  for (const auto& [elements, stored] : std::vector<std::pair<std::string, std::string>>{
           {"<enabled>false</enabled>", "0"},
           {"<ENABLED>True</ENABLED>", "1"},
           {"<enabled>true</enabled><enabled>false</enabled>", "0"},
           {"<enabled>true</enabled>", "1"},
           {"<id>7</id>", "0"},
           {"<enabled> true</enabled>", "0"}}) {
    EXPECT_EQ(put_with_daemon(kUri, "<audiochannel>" + elements + "</audiochannel>"), status(1, kUri))
        << elements;
    EXPECT_EQ(rows("select * from Audio"), "0|0|" + stored + "|2") << elements;
    camera::Message expected;
    camera::put_integer(expected, 4, 3);
    EXPECT_EQ(messages.at(0).body, expected.body) << elements;
    EXPECT_EQ(messages.at(0).type, service_pid);
  }
}

TEST_F(AudioChannelsTest, TheAnswerFollowsTheDaemonsReply) {
  run_sql("delete from Audio");  // no failure
  for (const auto& [result, code] : std::vector<std::pair<int, int>>{{0, 1}, {1, 2}, {2, 3}, {7, 3}, {-1, 3}})
    EXPECT_EQ(put_with_daemon(kUri, "<AudioChannel/>", {result}), status(code, kUri)) << result;
}

TEST_F(AudioChannelsTest, FailuresBeforeTheMessageChangeNothing) {
  for (const char* body :
       {"", "<Audio><enabled>false</enabled></Audio>",
        "<!DOCTYPE a [<!ENTITY e \"false\">]><AudioChannel><enabled>&e;</enabled></AudioChannel>"})
    EXPECT_EQ(put(kUri, body), status(3, kUri)) << body;
  EXPECT_EQ(rows("select Enable from Audio"), "1");
  run_sql("drop table Audio");
  EXPECT_EQ(put(kUri, "<AudioChannel/>"), status(3, kUri));
}

}  // namespace
}  // namespace psia_tests
