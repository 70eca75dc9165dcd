// Audio, video input and streaming: what the documents show, what a change stores and tells the daemons, and
// who is watching.
#include <regex>

#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

const std::string kStreams = "/PSIA/Streaming/channels/";

/// Stands for what is often said in the tables below.
const std::string kWords = "BLANKS := " + std::string(126, ' ') + R"(
AUDIO := /PSIA/System/Audio/channels
INPUTS := /PSIA/System/Video/inputs
STREAMS := /PSIA/Streaming/channels
LIST := StreamingChannelList
CHANNEL := StreamingChannel
TYPE := videoQualityControlType
REFUSE := create trigger refuse before update on
ABORT := begin select raise(abort, 'no'); end
)";

class MediaTest : public RunningServiceTest {};

TEST_F(MediaTest, InputsShowRow0) {
  expect_documents(kWords + R"(
update Audio set Enable=2 :: AUDIO/1 => AudioChannel!(id=1 enabled=true audioMode=listenonly)
update Audio set Enable=0 :: AUDIO => AudioChannelList!(AudioChannel!(id=1 enabled=false audioMode=listenonly))
delete from Audio :: AUDIO/1 => AudioChannel!(id=1 enabled=false audioMode=listenonly)
INPUT := INPUTS/channels/1 => VideoInputChannel!(id=1 inputPort=1 powerLineFrequencyMode=
insert into VideoSource values (1, 11, 12, 13, 1, 0) :: INPUT60hz brightnessLevel=60 contrastLevel=55 hueLevel=50)
update VideoSource set PowerLineFrequency=1, Brightness=-3, Contrast=0
 :: INPUT50hz brightnessLevel=-3 contrastLevel=0 hueLevel=50)
update VideoSource set PowerLineFrequency=0, Hue=51 :: INPUT60hz brightnessLevel=60 contrastLevel=55 hueLevel=51)
delete from VideoSource :: INPUT50hz brightnessLevel=50 contrastLevel=50 hueLevel=50)
)");
}

TEST_F(MediaTest, InputChangesAreStoredAndSent) {
  // The video input's row is that of the body's id; of a text 127 characters count.
  expect_effects(kWords + R"(
always := update Audio set Enable=7, Codec=2; insert into VideoSource values (1, 11, 12, 13, 1, 0)
PUT AUDIO/1 audiochannel(ENABLED=True) => Audio Enable=1; message 3; status 1
AudioChannel(enabled=true enabled=false) <- 1 => Audio Enable=0; message 3; status 2
AudioChannel(id=7) <- 2 => Audio Enable=0; message 3; status 3
AudioChannel(enabled=` true`) <- -1 => Audio Enable=0; message 3; status 3
Audio(enabled=false) => status 3
PUT INPUTS/channels/1 videoInputChannel(id=1 inputPort=7 powerLineFrequencyMode=60hz brightnessLevel=21
 contrastLevel=22 hueLevel=23) <- 1 => VideoSource/1 Brightness=21 Contrast=22 Hue=23; message 1 source=1; status 2
VideoInputChannel(ID=`BLANKS03` hueLevel=9 HUELEVEL=`BLANKS41`) =>
 VideoSource/0 Brightness=0 Contrast=0 Hue=4; message 1; status 1
VideoInputChannel(brightnessLevel=21) => message 1 source=-1; status 1
VideoInput(id=1) => status 3
)");
}

// The streaming documents: which of the stored values each shows, and how.

/// The resolution elements of "1280x720", or in the capabilities of "1280{1280,1920}x720{720,1080}".
std::string size(const std::string& sides) {
  const std::string brief =
      "videoResolutionWidth" + std::regex_replace(sides, std::regex(R"((\d+)(\{.*?\})?x?)"), "$2=$1 H");
  return xml(replaced(brief.substr(0, brief.size() - 2),
                      {{" H", " videoResolutionHeight"}, {"{", "{opt=\""}, {"}", "\"}"}}));
}

const std::string kSize = size("1920x1080");
const std::string kSlaveSize = size("1280x720");
const std::string kListedSlaveSize = size("352x240");
const std::string kCapabilitiesSize = size("1920{1280,1920}x1080{720,1080}");
const std::string kSlaveCapabilitiesSize = size("352{352,704}x240{240,480}");

/// The Master stream's elements in the factory state; with what a client may set.
const std::string kElements = xml(R"(
id=1 channelName=`Master stream` enabled=true Transport(rtspPortNo=554 maxPacketSize=1448
 ControlProtocolList(ControlProtocol(streamingTransport=RTSP)) Unicast(enabled=true rtpTransportType=RTP/TCP))
Video(enabled=true videoInputChannelID=1 videoCodecType=H.264 videoScanType=progressive videoResolutionWidth=1920
 videoResolutionHeight=1080 videoQualityControlType=CBR constantBitRate=4096 maxFrameRate=3000 keyFrameInterval=1000)
Audio(enabled=true audioInputChannelID=1 audioCompressionType=G.711ulaw audioBitRate=64 audioSamplingRate=8
 audioResolution=8))");
const std::string kCapabilities = xml(R"(
id{opt="1,2"}=1 channelName{min="1" max="128"}=`Master stream` enabled{opt="true,false"}=true
Transport(rtspPortNo{min="0" max="65535" def="554"}=554
 ControlProtocolList(ControlProtocol(streamingTransport{opt="RTSP/RTP,HTTP"}=RTSP))
 Unicast(<enabled opt="true,false" def="true"/> <rtpTransportType opt="RTP/UDP,RTP/TCP" />))
Video(enabled{opt="true,false"}=true videoInputChannelID{opt="1"}=1 videoCodecType{opt="MJPEG,H.264"}=H.264
 videoResolutionWidth{opt="1280,1920"}=1920 videoResolutionHeight{opt="720,1080"}=1080
 videoQualityControlType{opt="CBR,VBR"}=CBR constantBitRate{min="64" max="10240" dynamic="true"}=4096
 maxFrameRate{min="100" max="3000" default="1500"}=3000 keyFrameInterval{min="0" max="10000"}=1000)
Audio(enabled{opt="true,false"}=true audioInputChannelID{min="1" max="1"}=1
 audioCompressionType{opt="G.711ulaw,G.711alaw,G.726" default="G.711ulaw"}=G.711ulaw
 audioBitRate{opt="24,32,64"}=64 audioSamplingRate{opt="8"}=8 audioResolution{opt="8"}=8))");

/// From the factory values to those shown without a row. The Slave stream has most of them, too.
const std::string kScanType = "</videoCodecType><videoScanType>progressive</videoScanType>";
const Pairs kDefaults = {
    {">CBR<", ">VBR<"},
    {xml("constantBitRate=4096"), xml("fixedQuality=50 vbrUpperCap=10240 vbrLowerCap=1024")},
    {xml(R"(constantBitRate{min="64" max="10240" dynamic="true"}=4096)"),
     xml(R"(fixedQuality{min="0" max="100" default="50"}=50 vbrUpperCap=10240 vbrLowerCap=1024)")},
    {kSize, kSlaveSize},
    {">MJPEG<", ">H.264<"},
    {"H.264" + kScanType + kListedSlaveSize, "MJPEG" + kScanType + size("704x480")},
    {">3000<", ">1500<"}};
const Pairs kSlave = {{">1</id>", ">2</id>"},
                      {"Master", "Slave"},
                      {">H.264<", ">MJPEG<"},
                      {kCapabilitiesSize, kSlaveCapabilitiesSize}};

/// The documents in the factory state by what stands behind the URL of the list, which shows the Slave's own
/// size, and its codec by the opposite sense.
const std::map<std::string, std::string> kFactory = [] {
  const auto one = [](const std::string& elements) {
    return kXml + xml("StreamingChannel!(") + elements + "</StreamingChannel>";
  };
  const std::string slave = replaced(replaced(kElements, kDefaults), kSlave);
  const std::string listed = replaced(slave, {{kSlaveSize, kListedSlaveSize}, {">MJPEG<", ">H.264<"}});
  const std::string between = R"(</StreamingChannel><StreamingChannel version="1.0">)";
  return std::map<std::string, std::string>{
      {"/1", one(kElements)},
      {"/2", one(slave)},
      {"/1/capabilities", one(kCapabilities)},
      {"/2/capabilities", one(replaced(replaced(kCapabilities, kDefaults), kSlave))},
      {"", kXml + xml("StreamingChannelList!(StreamingChannel'(") + kElements + between + listed +
               "</StreamingChannel></StreamingChannelList>"}};
}();

class StreamsTest : public RunningServiceTest {
 protected:
  /// What the documents of both streams show after a statement, as changes of those in the factory state;
  /// `failing` are those that give a device error instead.
  void expect_streams(const std::string& sql, const Pairs& changes, const std::string& failing = "") {
    restore_settings();
    run_sql(sql);
    for (const auto& [end, text] : kFactory) {
      SCOPED_TRACE("after " + sql);
      expect_shown("/PSIA/Streaming/channels" + end,
                   failing.find("'" + end + "'") != std::string::npos ? "status 3" : replaced(text, changes));
    }
  }
};

TEST_F(StreamsTest, TheIdentifierChoosesTheStreamAndNoneIsRefused) {
  for (const char* id : {"10", "1/x", "MASTER-0", "master-01"})
    expect_shown(kStreams + id, kFactory.at("/1"));
  for (const char* id : {"7", "0", "Slave-0", "Master-", "Master_0", "%31", "/1"})
    expect_shown(kStreams + id, kFactory.at("/2"));
}

TEST_F(StreamsTest, SizesFollowResolutionCodeAndCaptureMode) {
  // The sizes offered (Spec.VideoResolution: 0x20 larger ones, 0x200000 the smaller class of sensors), the
  // capture mode, the resolution code, and the sizes then shown as the stream's and in its capabilities.
  for (const auto& [offered, mode, code, plain, capabilities] : std::vector<std::array<std::string, 5>>{
           {"0x20", "0", "0", "1280x720", "704{352,704}x480{240,480}"},
           {"0x20", "0", "1", "1280x720", "704{352,704}x240{240,480}"},
           {"0x20", "0", "3", "1280x720", "144x112"},
           {"0x20", "0", "4", "1280x720", "1280{1280,1920}x720{720,1080}"},
           {"0x1f", "2", "-1", "1280x720", "1280{1280}x720{720}"},
           {"0x20", "1", "6", "1280x1024", "1280{1280,2040}x1024{1024,1536}"},
           {"0x200000", "1", "4", "1280x1024", "1280{1280}x1024{1024}"},
           {"0x20", "1", "5", "2040x1536", "2040{1280,2040}x1536{1024,1536}"},
           {"0x200020", "1", "5", "1920x1080", "1920{1280,1920}x1080{720,1080}"}}) {
    expect_streams("update Spec set VideoResolution=" + offered + ";update VideoSource set CaptureMode=" +
                       mode + ";update VideoEncoder set Resolution=" + code,
                   {{kSize, size(plain)},
                    {kSlaveSize, size(plain)},
                    {kCapabilitiesSize, size(capabilities)},
                    {kSlaveCapabilitiesSize, size(capabilities)},
                    {kListedSlaveSize, size("704x480")}});
  }
}

TEST_F(StreamsTest, ShowStoredValuesAndWhatMissingRowsStandFor) {
  expect_streams("update VideoEncoder set Codec=-2, Enable=2",
                 {{">MJPEG<", ">H.264<"},
                  {"true</enabled><Transport>", "false</enabled><Transport>"},
                  {"true</enabled><videoInput", "false</enabled><videoInput"}});
  expect_streams("delete from Network;update VideoEncoder set QualityType=-1 where VideoEncoderID=1", {});
  // Quality, size of a group of pictures, frame rate, audio codec; what stands for them. In double precision
  // the first interval would be 700.
  for (const auto& [quality, group, frames, audio, percent, interval, rate, compression, bits] :
       std::vector<std::array<std::string, 9>>{
           {"-1", "7", "10", "0", "50", "699", "1000", "G.711ulaw", "64"},
           {"0", "15", "0", "1", "100", "2147483647", "0", "G.711alaw", "64"},
           {"1", "-15", "0", "2", "75", "-2147483648", "0", "G.726", "24"},
           {"3", "0", "0", "3", "25", "0", "0", "G.726", "32"},
           {"4", "5", "5", "4", "0", "1000", "500", "G.711", "64"},
           {"5", "5", "5", "0", "50", "1000", "500", "G.711ulaw", "64"}}) {
    expect_streams("update Audio set Codec=" + audio + ";update VideoEncoder set Quality=" + quality +
                       ", GOPSize=" + group + ", Framerate=" + frames,
                   {{">50<", ">" + percent + "<"},
                    {">1000<", ">" + interval + "<"},
                    {">3000<", ">" + rate + "<"},
                    {">1500<", ">" + rate + "<"},
                    {">G.711ulaw<", ">" + compression + "<"},
                    {">64<", ">" + bits + "<"}});
  }
  expect_streams("update Network set RTSPPort=8554", {{">554<", ">8554<"}});
  // The capabilities look for the row by its id, the others by its type. The list takes any number for on,
  // the others 1 alone.
  const std::string on = "true</enabled><audioInputChannelID";
  const std::string off = "false</enabled><audioInputChannelID";
  expect_streams("update Audio set Type=1", {{on + ">", off + ">"}});
  expect_streams("update Audio set AudioID=3", {{on + " min", off + " min"}});
  run_sql("update Audio set AudioID=0, Enable=2");
  for (const auto& [end, text] : kFactory)
    expect_shown("/PSIA/Streaming/channels" + end, end.empty() ? text : replaced(text, {{on, off}}));

  expect_streams("delete from VideoEncoder", kDefaults, "'/1/capabilities' '/2/capabilities'");
  expect_streams("update VideoEncoder set Enable=-1 where VideoEncoderID=0", {}, "'/1' '/1/capabilities' ''");
  expect_streams("update VideoEncoder set Enable=-1 where VideoEncoderID=1", {}, "'/2' '/2/capabilities' ''");
  // Without a Spec row the sensor is of the smaller class: no 2040 x 1536 in any mode. Without a System row
  // the capture mode is not known and counts as 1920 x 1080.
  expect_streams("delete from Spec;update VideoSource set CaptureMode=1", {{kSlaveSize, size("1280x1024")}},
                 "'/1/capabilities' '/2/capabilities'");
  expect_streams("delete from System;update VideoSource set CaptureMode=1", {});
}

TEST_F(MediaTest, ViewersOfTheStreamChosenByTheLengthOfTheUri) {
  // Each with header lines of its own, and percent signs as they are stored.
  const std::string slave = get(kStreams + "Slave-0/status");
  const std::string viewer = xml("StreamingSessionStatus(clientAddress(ipAddress=192.168.1.60))");
  const std::string viewers = replaced(viewer, {{".60", ".50"}}) + replaced(viewer, {{".60", ".51"}});
  for (const char* end : {"slave-0/STATUS", "1234567/status"})
    EXPECT_TRUE(same(get(kStreams + end), slave)) << end;
  for (const char* end : {"2/status", "Slave-0//status", "slave/status"})
    EXPECT_TRUE(same(get(kStreams + end), replaced(slave, {{viewer, viewers}}))) << end;
  run_sql("update ClientList set Address='%%%%d%s<&%%' where StreamName='Slave-0'");
  EXPECT_EQ(get(kStreams + "Slave-0/status"), replaced(slave, {{"192.168.1.60", "%%%%d%s<&%%"}}));
  expect_documents(R"(
OF := StreamingSessionStatus'(clientAddress(ipAddress
update ClientList set Address='%%%%d%s<&%%' where StreamName='Slave-0' :: /PSIA/Streaming/status => StreamingStatus!(
 totalStreamingSessions=3 StreamingSessionStatusList'(OF=192.168.1.50)) OF=192.168.1.51)) OF=%d%s<&%))))
delete from ClientList ::
 /PSIA/Streaming/status => StreamingStatus!(totalStreamingSessions=0 StreamingSessionStatusList'())
drop table ClientList :: /PSIA/Streaming/status => status 3
update ClientList set StreamName='slave-0' :: /PSIA/Streaming/channels/{Slave-0/status|1/status} => status 3
)");
}

// Changing the streaming channels: what is stored, and what the daemons are told at which moment.

TEST_F(MediaTest, EachPartOfAStreamingUpdateTakesEffectAsItIsMet) {
  // The daemons' replies change nothing. The body's id counts, not the URL's; of the ports the last, and no
  // port is refused. When the port is the stored one already nothing is done; id and enabled behind the Video
  // element come too late for it. A list is one request with values carried on. MJPEG forces the type of
  // quality control and the quality where the type stands. A failing statement ends the request and keeps
  // what was done. Bodies that are no update put the default port back.
  expect_effects(kWords + R"(
PUT STREAMS/2 CHANNEL(id=1 enabled=false Transport(rtspPortNo=1 rtspPortNo=70000) Video(TYPE=CBR videoCodecType=MJPEG)
 Audio(enabled=true audioCompressionType=G.711alaw audioBitRate=32)) <- 2 1 2 =>
 VideoEncoder/0 Enable=0 Codec=0 Resolution=4 Bitrate=2048 Quality=2; message 2 master=1; Audio Codec=1; message 3;
 Network RTSPPort=70000; message 37; status 1
update Network set RTSPPort=70000 :: CHANNEL(Transport(rtspPortNo=70000x) VIDEO() id=2 ENABLED=no) =>
 VideoEncoder/0 Resolution=0 QualityType=1 Bitrate=2048 Quality=2; message 2 master=1; status 1
PUT STREAMS LIST(id=1 CHANNEL() Other(Video()) CHANNEL(id=Slave-0 Video(videoCodecType=mjpeg fixedQuality=100 TYPE=CBR
 videoResolutionWidth=176 maxFrameRate=1000)) StreamingCHANNEl(TRANSPORT(rtspPortNo=-1) enabled=no
 Video(videoResolutionHeight=240 constantBitRate=300) Audio(enabled=yes audioCompressionType=G.726 audioBitRate=64))
 CHANNEL(id=MASTER-0 Video() Audio(audioBitRate=32) Audio(audioCompressionType=MP3))) =>
 VideoEncoder/1 Resolution=3 Bitrate=2048 Framerate=10; message 2;
 VideoEncoder/1 Enable=0 Resolution=2 Bitrate=300; message 2; Audio Enable=0 Codec=2; message 3;
 VideoEncoder/0 Enable=0 Codec=0 Resolution=4 QualityType=1 Bitrate=300 Quality=2 Framerate=10; message 2 master=1;
 Audio Codec=3; message 3; Audio Codec=0; message 3; Network RTSPPort=-1; message 37; status 1
PORT := Transport(rtspPortNo=7)
REFUSE VideoEncoder when new.VideoEncoderID=1 ABORT :: LIST(CHANNEL(id=1 PORT Video()) CHANNEL(id=2 Video() Audio())) =>
 VideoEncoder/0 Resolution=4 QualityType=1 Bitrate=2048 Quality=2; message 2 master=1; status 3
REFUSE Audio ABORT :: PUT STREAMS/1 CHANNEL(id=2 PORT Video() Audio() Video()) =>
 VideoEncoder/1 Codec=1 Resolution=0 Bitrate=2048 Framerate=30; message 2; status 3
REFUSE Network ABORT :: CHANNEL(PORT Audio()) => Audio Enable=0; message 3; status 3
always := update Network set RTSPPort=8554
PUT STREAMS/1 {LIST(CHANNEL(Video()))|CHANNEL()} => Network RTSPPort=554; message 37; status 1
PUT STREAMS CHANNEL(Video()) => Network RTSPPort=554; message 37; status 1
{PUT STREAMS|PUT STREAMS/1} "no XML" => status 3
)");
}

TEST_F(MediaTest, VideoConversions) {
  // What each element's text makes of its column, where the others have what an update without them stores.
  expect_effects(kWords + R"(
W= := videoResolutionWidth=
H= := videoResolutionHeight=
DONE := ; message 2 master=1; status 1
always := update VideoEncoder set Enable=1, Codec=9, Resolution=9, QualityType=9, Bitrate=2048, Quality=9, Framerate=9
PUT STREAMS/2 CHANNEL(id=1 Video(videoCodecType=MJPEG2 W={1920|2040px} TYPE=vbr fixedQuality={0|0x} maxFrameRate=1599))
 => VideoEncoder/0 Codec=1 Resolution=5 QualityType=1 Quality=4 Framerate=15DONE
CHANNEL(id=1 Video(W={1919|704} TYPE=X fixedQuality={-5|25} maxFrameRate=-199))
 => VideoEncoder/0 Codec=1 Resolution=4 QualityType=0 Quality=3 Framerate=-1DONE
CHANNEL(id=1 Video(H={1080|1536} fixedQuality={26|50|76|99|101}))
 => VideoEncoder/0 Codec=1 Resolution=5 QualityType=1 Quality=2 Framerate=30DONE
CHANNEL(id=1 Video(H=1200 fixedQuality={51|75}))
 => VideoEncoder/0 Codec=1 Resolution=4 QualityType=1 Quality=1 Framerate=30DONE
CHANNEL(id=1 Video(fixedQuality=100)) => VideoEncoder/0 Codec=1 Resolution=4 QualityType=1 Quality=0 Framerate=30DONE
always := update VideoEncoder set Codec=1, Resolution=9, QualityType=1, Bitrate=2048, Quality=2, Framerate=30
CHANNEL(id=2 Video({W=176|H=112|H=144})) => VideoEncoder/1 Resolution=3; message 2; status 1
CHANNEL(id=2 Video({W=352|W=352 H=240})) => VideoEncoder/1 Resolution=2; message 2; status 1
CHANNEL(id=2 Video({W=704 H=240|W=704 H=288|H=240|H=288})) => VideoEncoder/1 Resolution=1; message 2; status 1
CHANNEL(id=2 Video({W=704|H=480})) => VideoEncoder/1 Resolution=0; message 2; status 1
)");
}

}  // namespace
}  // namespace psia_tests
