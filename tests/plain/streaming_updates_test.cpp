// Changes of the streaming channels: what is stored, and what the daemons are told at which moment.
#include "tests/plain/camera_test.h"

namespace service_tests {
namespace {

const std::string kChannels = "/PSIA/Streaming/channels";

using StreamingUpdatesTest = ServiceTest;

TEST_F(StreamingUpdatesTest, EachPartTakesEffectAsItIsMetWhateverTheDaemonsReply) {
  // The id of the body counts, not that of the URL; MJPEG sets the quality; the port is sent last.
  expect_effects({.method = "PUT",
                  .uri = kChannels + "/2",
                  .body = R"(
      <StreamingChannel>
        <id>1</id>
        <enabled>false</enabled>
        <Transport><rtspPortNo>1</rtspPortNo><rtspPortNo>70000</rtspPortNo></Transport>
        <Video>
          <videoQualityControlType>CBR</videoQualityControlType>
          <videoCodecType>MJPEG</videoCodecType>
        </Video>
        <Audio>
          <enabled>true</enabled>
          <audioCompressionType>G.711alaw</audioCompressionType>
          <audioBitRate>32</audioBitRate>
        </Audio>
      </StreamingChannel>)",
                  .replies = {2, 1, 2}},
                 {
                     "VideoEncoder[0].Enable = 0",
                     "VideoEncoder[0].Codec = 0",
                     "VideoEncoder[0].Resolution = 4",
                     "VideoEncoder[0].Bitrate = 2048",
                     "VideoEncoder[0].Quality = 2",    //
                     "message 2 encoder: master = 1",  //
                     "Audio.Codec = 1",                //
                     "message 3 audio",                //
                     "Network.RTSPPort = 70000",       //
                     "message 37 RTSP port",           //
                     "status 1",
                 });
}

TEST_F(StreamingUpdatesTest, ChannelsOfAListKeepWhatTheOneBeforeSet) {
  expect_effects({"PUT", kChannels, R"(
      <StreamingChannelList>
        <StreamingChannel>
          <id>Slave-0</id>
          <Video>
            <fixedQuality>100</fixedQuality>
            <videoResolutionWidth>176</videoResolutionWidth>
            <maxFrameRate>1000</maxFrameRate>
          </Video>
        </StreamingChannel>
        <StreamingChannel>
          <enabled>no</enabled>
          <Video>
            <videoResolutionHeight>240</videoResolutionHeight>
            <constantBitRate>300</constantBitRate>
          </Video>
        </StreamingChannel>
      </StreamingChannelList>)"},
                 {
                     "VideoEncoder[1].Codec = 1",
                     "VideoEncoder[1].Resolution = 3",
                     "VideoEncoder[1].Bitrate = 2048",
                     "VideoEncoder[1].Quality = 0",
                     "VideoEncoder[1].Framerate = 10",  //
                     "message 2 encoder: master = 0",   //
                     "VideoEncoder[1].Enable = 0",
                     "VideoEncoder[1].Resolution = 2",
                     "VideoEncoder[1].Bitrate = 300",
                     "message 2 encoder: master = 0",  //
                     "status 1",
                 });
}

TEST_F(StreamingUpdatesTest, AFailingStatementEndsTheRequestAndKeepsWhatWasDone) {
  const auto expect_done = [this](const std::string& failing_table, const Lines& expected,
                                  Place place = here()) {
    reset();
    execute("create trigger refuse before update on " + failing_table +
            " begin select raise(abort, 'no'); end");
    expect_effects({"PUT", kChannels + "/1", R"(
        <StreamingChannel>
          <id>1</id>
          <Transport><rtspPortNo>7</rtspPortNo></Transport>
          <Video><videoQualityControlType>CBR</videoQualityControlType></Video>
          <Audio><enabled>false</enabled></Audio>
        </StreamingChannel>)"},
                   expected, place);
  };
  expect_done("VideoEncoder", {"status 3"});
  expect_done("Audio", {"VideoEncoder[0].Resolution = 4", "VideoEncoder[0].Bitrate = 2048",
                        "VideoEncoder[0].Quality = 2", "message 2 encoder: master = 1", "status 3"});
}

}  // namespace
}  // namespace service_tests
