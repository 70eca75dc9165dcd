// The streaming channels' documents: which of the stored values each shows, and how.
#include <regex>
#include <set>

#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

const std::string kList = "/PSIA/Streaming/channels";
const std::string kMaster = kList + "/1";
const std::string kSlave = kList + "/2";
const std::string kMasterCapabilities = kMaster + "/capabilities";
const std::string kSlaveCapabilities = kSlave + "/capabilities";

using Changes = std::vector<std::pair<std::string, std::string>>;

/// `text` with each change's first replaced by its second wherever it occurs.
std::string changed(std::string text, const Changes& changes) {
  for (const auto& [from, to] : changes) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
      text.replace(at, from.size(), to);
  }
  return text;
}

/// The resolution elements; with the sizes that a client may set in the capabilities.
std::string size(int width, int height, const std::string& widths = "", const std::string& heights = "") {
  const auto opt = [](const std::string& sizes) { return sizes.empty() ? "" : " opt=\"" + sizes + "\""; };
  return "<videoResolutionWidth" + opt(widths) + ">" + std::to_string(width) + "</videoResolutionWidth>" +
         "<videoResolutionHeight" + opt(heights) + ">" + std::to_string(height) + "</videoResolutionHeight>";
}

const std::string kSize = size(1920, 1080);
const std::string kSlaveSize = size(1280, 720);
const std::string kListedSlaveSize = size(352, 240);
const std::string kCapabilitiesSize = size(1920, 1080, "1280,1920", "720,1080");
const std::string kSlaveCapabilitiesSize = size(352, 240, "352,704", "240,480");

/// What stands behind the start tag of the Master stream's capabilities in the factory state.
const std::string kCapabilitiesElements =
    R"(<id opt="1,2">1</id><channelName min="1" max="128">Master stream</channelName>)"
    R"(<enabled opt="true,false">true</enabled><Transport><rtspPortNo min="0" max="65535" def="554">554)"
    R"(</rtspPortNo><ControlProtocolList><ControlProtocol><streamingTransport opt="RTSP/RTP,HTTP">RTSP)"
    R"(</streamingTransport></ControlProtocol></ControlProtocolList><Unicast><enabled opt="true,false" )"
    R"(def="true"/><rtpTransportType opt="RTP/UDP,RTP/TCP" /></Unicast></Transport>)"
    R"(<Video><enabled opt="true,false">true</enabled><videoInputChannelID opt="1">1</videoInputChannelID>)"
    R"(<videoCodecType opt="MJPEG,H.264">H.264</videoCodecType><videoResolutionWidth opt="1280,1920">1920)"
    R"(</videoResolutionWidth><videoResolutionHeight opt="720,1080">1080</videoResolutionHeight>)"
    R"(<videoQualityControlType opt="CBR,VBR">CBR</videoQualityControlType>)"
    R"(<constantBitRate min="64" max="10240" dynamic="true">4096</constantBitRate>)"
    R"(<maxFrameRate min="100" max="3000" default="1500">3000</maxFrameRate>)"
    R"(<keyFrameInterval min="0" max="10000">1000</keyFrameInterval></Video>)"
    R"(<Audio><enabled opt="true,false">true</enabled><audioInputChannelID min="1" max="1">1)"
    R"(</audioInputChannelID><audioCompressionType opt="G.711ulaw,G.711alaw,G.726" default="G.711ulaw">)"
    R"(G.711ulaw</audioCompressionType><audioBitRate opt="24,32,64">64</audioBitRate><audioSamplingRate )"
    R"(opt="8">8</audioSamplingRate><audioResolution opt="8">8</audioResolution></Audio></StreamingChannel>)";

const std::string kScanType = "</videoCodecType><videoScanType>progressive</videoScanType>";
/// The same of the other documents.
const std::string kElements =
    changed(std::regex_replace(kCapabilitiesElements,
                               std::regex(" (opt|min|max|def|default|dynamic)=\"[^\"]*\""), ""),
            {{"</rtspPortNo>", "</rtspPortNo><maxPacketSize>1448</maxPacketSize>"},
             {"<enabled/><rtpTransportType />",
              "<enabled>true</enabled><rtpTransportType>RTP/TCP</rtpTransportType>"},
             {"</videoCodecType>", kScanType}});

/// From the factory values to those shown without a row. The Slave stream has most of them, too.
const std::string kCaps = "<vbrUpperCap>10240</vbrUpperCap><vbrLowerCap>1024</vbrLowerCap>";
const Changes kDefaults = {
    {">CBR<", ">VBR<"},
    {"<constantBitRate>4096</constantBitRate>", "<fixedQuality>50</fixedQuality>" + kCaps},
    {R"(<constantBitRate min="64" max="10240" dynamic="true">4096</constantBitRate>)",
     R"(<fixedQuality min="0" max="100" default="50">50</fixedQuality>)" + kCaps},
    {kSize, kSlaveSize},
    {">MJPEG<", ">H.264<"},
    {"H.264" + kScanType + kListedSlaveSize, "MJPEG" + kScanType + size(704, 480)},
    {">3000<", ">1500<"}};

/// The documents in the factory state by their URIs.
std::map<std::string, std::string> factory_documents() {
  const auto of_slave = [](const std::string& of_master) {
    return changed(changed(of_master, kDefaults), {{">1</id>", ">2</id>"},
                                                   {"Master", "Slave"},
                                                   {">H.264<", ">MJPEG<"},
                                                   {kCapabilitiesSize, kSlaveCapabilitiesSize}});
  };
  const std::string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n";
  const std::string start = declaration + R"(<StreamingChannel version="1.0" xmlns="urn:psialliance-org">)";
  const std::string entry = R"(<StreamingChannel version="1.0">)";
  // The list shows the Slave's own size, and its codec by the opposite sense.
  return {{kMaster, start + kElements},
          {kSlave, start + of_slave(kElements)},
          {kMasterCapabilities, start + kCapabilitiesElements},
          {kSlaveCapabilities, start + of_slave(kCapabilitiesElements)},
          {kList, declaration + R"(<StreamingChannelList version="1.0" xmlns="urn:psialliance-org">)" +
                      entry + kElements + entry +
                      changed(of_slave(kElements), {{kSlaveSize, kListedSlaveSize}, {">MJPEG<", ">H.264<"}}) +
                      "</StreamingChannelList>"}};
}

class StreamingDocumentsTest : public ServiceTest {
 protected:
  /// What the documents show after `sql` has run in the factory state; `failing` ones give a device error.
  void expect_documents(const std::string& sql, const Changes& changes,
                        const std::set<std::string>& failing = {}) {
    ASSERT_EQ(camera::restore_factory_rows(), "");
    run_sql(sql);
    for (const auto& [uri, text] : factory_documents()) {
      const std::string expected = failing.contains(uri) ? status(3, uri) : document(changed(text, changes));
      EXPECT_EQ(get(uri), expected) << uri << " after " << sql;
    }
  }
};

TEST_F(StreamingDocumentsTest, TheIdentifierChoosesTheStreamAndNoneIsRefused) {
  start_service();
  for (const char* id : {"1", "10", "1/x", "MASTER-0", "master-01"})
    EXPECT_EQ(get(kList + "/" + id), document(factory_documents().at(kMaster))) << id;
  for (const char* id : {"2", "7", "0", "Slave-0", "Master-", "Master_0", "%31", "/1"})
    EXPECT_EQ(get(kList + "/" + id), document(factory_documents().at(kSlave))) << id;
}

TEST_F(StreamingDocumentsTest, SizesFollowResolutionCodeAndCaptureMode) {
  start_service();
  // Spec.VideoResolution: 0x20 offers larger sizes, 0x200000 is the smaller class of sensors.
  const auto expect_sizes = [this](int offered, int capture_mode, int code, const std::string& plain,
                                   const std::string& capabilities) {
    expect_documents("update Spec set VideoResolution=" + std::to_string(offered) +
                         ";update VideoSource set CaptureMode=" + std::to_string(capture_mode) +
                         ";update VideoEncoder set Resolution=" + std::to_string(code),
                     {{kSize, plain},
                      {kSlaveSize, plain},
                      {kCapabilitiesSize, capabilities},
                      {kSlaveCapabilitiesSize, capabilities},
                      {kListedSlaveSize, code == 2 ? kListedSlaveSize : size(704, 480)}});
  };
  expect_sizes(0x20, 0, 0, kSlaveSize, size(704, 480, "352,704", "240,480"));
  expect_sizes(0x20, 0, 1, kSlaveSize, size(704, 240, "352,704", "240,480"));
  expect_sizes(0x20, 0, 2, kSlaveSize, size(352, 240, "352,704", "240,480"));
  expect_sizes(0x20, 0, 3, kSlaveSize, size(144, 112));
  for (const int code : {-1, 4, 6}) {
    expect_sizes(0x20, 0, code, kSlaveSize, size(1280, 720, "1280,1920", "720,1080"));
    expect_sizes(0x1f, 2, code, kSlaveSize, size(1280, 720, "1280", "720"));
    expect_sizes(0x20, 1, code, size(1280, 1024), size(1280, 1024, "1280,2040", "1024,1536"));
    expect_sizes(0x200000, 1, code, size(1280, 1024), size(1280, 1024, "1280", "1024"));
  }
  expect_sizes(0x1f, 0, 5, kSize, kCapabilitiesSize);
  expect_sizes(0x20, 1, 5, size(2040, 1536), size(2040, 1536, "1280,2040", "1024,1536"));
  expect_sizes(0x200020, 1, 5, kSize, kCapabilitiesSize);  // of the smaller class
}

TEST_F(StreamingDocumentsTest, StoredValuesAndMissingRows) {
  start_service();
  expect_documents("update VideoEncoder set Codec=-2", {{">MJPEG<", ">H.264<"}});
  expect_documents("update VideoEncoder set Enable=2",
                   {{"true</enabled><Transport>", "false</enabled><Transport>"},
                    {"true</enabled><videoInput", "false</enabled><videoInput"}});
  expect_documents("update VideoEncoder set QualityType=-1 where VideoEncoderID=1", {});
  int level = -1;
  for (const std::string percentage : {"50", "100", "75", "50", "25", "0", "50"}) {
    expect_documents("update VideoEncoder set Quality=" + std::to_string(level++),
                     {{">50<", ">" + percentage + "<"}});
  }
  const auto rates = [](const std::string& rate, const std::string& interval) {
    return Changes{{">1000<", interval}, {">3000<", rate}, {">1500<", rate}};
  };
  // In double precision the first would be 700.
  expect_documents("update VideoEncoder set GOPSize=7, Framerate=10", rates(">1000<", ">699<"));
  expect_documents("update VideoEncoder set GOPSize=15, Framerate=0", rates(">0<", ">2147483647<"));
  expect_documents("update VideoEncoder set GOPSize=-15, Framerate=0", rates(">0<", ">-2147483648<"));
  expect_documents("update VideoEncoder set GOPSize=0, Framerate=0", rates(">0<", ">0<"));
  expect_documents("update Network set RTSPPort=8554", {{">554<", ">8554<"}});
  expect_documents("delete from Network", {});

  expect_documents("update Audio set Codec=1", {{">G.711ulaw<", ">G.711alaw<"}});
  expect_documents("update Audio set Codec=2", {{">G.711ulaw<", ">G.726<"}, {">64<", ">24<"}});
  expect_documents("update Audio set Codec=3", {{">G.711ulaw<", ">G.726<"}, {">64<", ">32<"}});
  expect_documents("update Audio set Codec=4", {{">G.711ulaw<", ">G.711<"}});
  // The capabilities look for the row by its id, the others by its type.
  const std::string on = "true</enabled><audioInputChannelID";
  const std::string off = "false</enabled><audioInputChannelID";
  expect_documents("update Audio set Type=1", {{on + ">", off + ">"}});
  expect_documents("update Audio set AudioID=3", {{on + " min", off + " min"}});
  // The list takes any number for on, the others 1 alone.
  run_sql("update Audio set AudioID=0, Enable=2");
  for (const auto& [uri, text] : factory_documents())
    EXPECT_EQ(get(uri), document(uri == kList ? text : changed(text, {{on, off}}))) << uri;

  expect_documents("delete from VideoEncoder", kDefaults, {kMasterCapabilities, kSlaveCapabilities});
  expect_documents("update VideoEncoder set Enable=-1 where VideoEncoderID=0", {},
                   {kMaster, kMasterCapabilities, kList});
  expect_documents("update VideoEncoder set Enable=-1 where VideoEncoderID=1", {},
                   {kSlave, kSlaveCapabilities, kList});
  // Without a Spec row the sensor is of the smaller class: no 2040 x 1536 in any mode.
  expect_documents("delete from Spec;update VideoSource set CaptureMode=1", {{kSlaveSize, size(1280, 1024)}},
                   {kMasterCapabilities, kSlaveCapabilities});
  // Without a System row the capture mode is not known and counts as 1920 x 1080.
  expect_documents("delete from System;update VideoSource set CaptureMode=1", {});
}

}  // namespace
}  // namespace psia_tests
