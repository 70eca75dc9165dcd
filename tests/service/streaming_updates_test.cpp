// Changing the streaming channels: what is stored, and what the daemons are told at which moment.
#include <array>
#include <sstream>
#include <tuple>

#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

const std::string kList = "/PSIA/Streaming/channels";
const std::string kChannel = kList + "/1";

std::string element(const std::string& name, const std::string& content) {
  return "<" + name + ">" + content + "</" + name + ">";
}
std::string channel(const std::string& content) {
  return element("StreamingChannel", content);
}
std::string list(const std::string& content) {
  return element("StreamingChannelList", content);
}

/// The encoders' rows, the audio encoder's and the port.
std::string stored() {
  return rows("select * from VideoEncoder") + " " + rows("select * from Audio") + " " +
         rows("select RTSPPort from Network");
}

/// A message's command, its word behind the first of the payload, and what the daemon then finds stored.
using Step = std::tuple<int, int, std::string>;

class StreamingUpdatesTest : public RunningServiceTest {
 protected:
  /// PUTs `body` while a daemon looks at the database before each reply, which must not change the answer.
  void expect_steps(const std::string& uri, const std::string& body, const std::vector<Step>& steps,
                    int code = 1) {
    SCOPED_TRACE(body);
    const fastcgi::Connection connection = begin({.method = "PUT", .uri = uri, .body = body});
    for (const auto& [command, master, found] : steps) {
      const camera::Message message = expect_message();
      if (HasFailure()) return;
      camera::Message expected;
      camera::put_integer(expected, 4, command);
      camera::put_integer(expected, 16, master);
      EXPECT_EQ(message.body, expected.body) << camera::describe(message);
      EXPECT_EQ(stored(), found);
      EXPECT_TRUE(camera::send_reply(camera::reply_to(message, 2)));
    }
    EXPECT_EQ(connection.receive().out, status(code, uri));
    expect_no_message();
  }
};

TEST_F(StreamingUpdatesTest, EachPartTakesEffectAsItIsMet) {
  // The body's id counts, not the URL's; of the ports the last, and no port is refused.
  expect_steps(
      kList + "/2",
      channel("<id>1</id><enabled>false</enabled>"
              "<Transport><rtspPortNo>1</rtspPortNo><rtspPortNo>70000</rtspPortNo></Transport><Video>"
              "<videoQualityControlType>CBR</videoQualityControlType><videoCodecType>MJPEG</videoCodecType>"
              "</Video><Audio><enabled>true</enabled><audioCompressionType>G.711alaw</audioCompressionType>"
              "<audioBitRate>32</audioBitRate></Audio>"),
      {{2, 1, "0|0|0|4|0|2048|2|30|30;1|1|0|2|1|1024|2|15|15 0|0|1|0 554"},
       {3, 0, "0|0|0|4|0|2048|2|30|30;1|1|0|2|1|1024|2|15|15 0|0|1|1 554"},
       {37, 0, "0|0|0|4|0|2048|2|30|30;1|1|0|2|1|1024|2|15|15 0|0|1|1 70000"}});
  // The port is the stored one now; id and enabled behind the Video element come too late for it.
  expect_steps(kChannel,
               channel("<Transport><rtspPortNo>70000x</rtspPortNo></Transport>"
                       "<VIDEO/><id>2</id><ENABLED>no</ENABLED>"),
               {{2, 1, "0|1|1|0|1|2048|2|30|30;1|1|0|2|1|1024|2|15|15 0|0|1|1 70000"}});
}

TEST_F(StreamingUpdatesTest, AListIsOneRequestWithValuesCarriedOn) {
  // MJPEG forces the type of quality control and the quality where the type stands.
  expect_steps(
      kList,
      list("\n<id>1</id><StreamingChannel/><Other><Video/></Other>"
           "<StreamingChannel><id>Slave-0</id><Video><videoCodecType>mjpeg</videoCodecType>"
           "<fixedQuality>100</fixedQuality><videoQualityControlType>CBR</videoQualityControlType>"
           "<videoResolutionWidth>176</videoResolutionWidth><maxFrameRate>1000</maxFrameRate></Video>"
           "</StreamingChannel>\n<STREAMINGCHANNEL><TRANSPORT><rtspPortNo>-1</rtspPortNo></TRANSPORT>"
           "<enabled>no</enabled><Video><videoResolutionHeight>240</videoResolutionHeight>"
           "<constantBitRate>300</constantBitRate></Video><Audio><enabled>yes</enabled>"
           "<audioCompressionType>G.726</audioCompressionType><audioBitRate>64</audioBitRate></Audio>"
           "</STREAMINGCHANNEL><StreamingChannel><id>MASTER-0</id><Video/>"
           "<Audio><audioBitRate>32</audioBitRate></Audio>"
           "<Audio><audioCompressionType>MP3</audioCompressionType></Audio></StreamingChannel>"),
      {{2, 0, "0|1|1|5|0|4096|1|30|30;1|1|0|3|1|2048|2|10|15 0|0|1|0 554"},
       {2, 0, "0|1|1|5|0|4096|1|30|30;1|0|0|2|1|300|2|10|15 0|0|1|0 554"},
       {3, 0, "0|1|1|5|0|4096|1|30|30;1|0|0|2|1|300|2|10|15 0|0|0|2 554"},
       {2, 1, "0|0|0|4|1|300|2|10|30;1|0|0|2|1|300|2|10|15 0|0|0|2 554"},
       {3, 0, "0|0|0|4|1|300|2|10|30;1|0|0|2|1|300|2|10|15 0|0|0|3 554"},
       {3, 0, "0|0|0|4|1|300|2|10|30;1|0|0|2|1|300|2|10|15 0|0|0|0 554"},
       {37, 0, "0|0|0|4|1|300|2|10|30;1|0|0|2|1|300|2|10|15 0|0|0|0 -1"}});
}

TEST_F(StreamingUpdatesTest, BodiesThatAreNoUpdatePutTheDefaultPortBack) {
  for (const auto& [uri, body] : std::vector<std::array<std::string, 2>>{
           {kChannel, list(channel("<Video/>"))}, {kChannel, channel("")}, {kList, channel("<Video/>")}}) {
    run_sql("update Network set RTSPPort=8554");
    EXPECT_EQ(put(uri, "no XML"), status(3, uri));
    expect_steps(uri, body, {{37, 0, "0|1|1|5|0|4096|1|30|30;1|1|0|2|1|1024|2|15|15 0|0|1|0 554"}});
  }
}

TEST_F(StreamingUpdatesTest, AFailingStatementEndsTheRequestAndKeepsWhatWasDone) {
  const auto fail = [](const std::string& when) {
    run_sql("drop trigger if exists fail;create trigger fail before update on " + when +
            " begin select raise(abort, 'no'); end");
  };
  const std::string port = "<Transport><rtspPortNo>7</rtspPortNo></Transport>";
  fail("VideoEncoder when new.VideoEncoderID=1");
  expect_steps(kList, list(channel("<id>1</id>" + port + "<Video/>") + channel("<id>2</id><Video/><Audio/>")),
               {{2, 1, "0|1|1|4|1|2048|2|30|30;1|1|0|2|1|1024|2|15|15 0|0|1|0 554"}}, 3);
  fail("Audio");
  expect_steps(kChannel, channel("<id>2</id>" + port + "<Video/><Audio/><Video/>"),
               {{2, 0, "0|1|1|4|1|2048|2|30|30;1|1|1|0|1|2048|2|30|15 0|0|1|0 554"}}, 3);
  fail("Network");
  expect_steps(kChannel, channel(port + "<Audio/>"),
               {{3, 0, "0|1|1|4|1|2048|2|30|30;1|1|1|0|1|2048|2|30|15 0|0|0|0 554"}}, 3);
}

TEST_F(StreamingUpdatesTest, VideoConversions) {
  // A channel, one of its elements, texts of the element with what each makes of the column behind them.
  for (const auto& [id, name, texts, column] : std::vector<std::array<std::string, 4>>{
           {"1", "videoResolutionWidth", "1920=5 2040px=5 1919=4 704=4", "Resolution"},
           {"1", "videoResolutionHeight", "1080=5 1536=5 1200=4", "Resolution"},
           {"2", "videoResolutionWidth", "176=3 352=2 704=0", "Resolution"},
           {"2", "videoResolutionHeight", "112=3 144=3 240=1 288=1 480=0", "Resolution"},
           {"1", "videoCodecType", "MJPEG2=1", "Codec"},
           {"1", "videoQualityControlType", "vbr=1 X=0", "QualityType"},
           {"1", "fixedQuality", "0=4 -5=3 25=3 26=2 50=2 51=1 75=1 76=2 99=2 100=0 101=2", "Quality"},
           {"1", "maxFrameRate", "1599=15 -199=-1", "Framerate"}}) {
    std::istringstream rest(texts);
    for (std::string text; rest >> text;) {
      const std::size_t equals = text.find('=');
      const std::string video = element("Video", element(name, text.substr(0, equals)));
      SCOPED_TRACE(video);
      // The reply is there before the message, so that no time passes until it is looked for.
      ASSERT_TRUE(camera::send_reply(camera::reply_to({.type = service_pid}, 0)));
      EXPECT_EQ(call({.method = "PUT", .uri = kChannel, .body = channel(element("id", id) + video)}),
                status(1, kChannel));
      (void)expect_message();
      EXPECT_EQ(rows("select " + column + " from VideoEncoder where VideoEncoderID+1=" + id),
                text.substr(equals + 1));
    }
  }
}

}  // namespace
}  // namespace psia_tests
