// The video input: what the three documents show, what a change stores and tells the daemon.
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

constexpr const char* kUri = "/PSIA/System/Video/inputs/channels/1";

class VideoInputsTest : public RunningServiceTest {
 protected:
  void SetUp() override {
    RunningServiceTest::SetUp();
    run_sql("insert into VideoSource values (1, 11, 12, 13, 1, 0)");
  }
};

TEST_F(VideoInputsTest, DocumentsShowRow0) {
  const std::string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n";
  const std::string channel =
      "<id>1</id><inputPort>1</inputPort><powerLineFrequencyMode>60hz</powerLineFrequencyMode>"
      "<brightnessLevel>60</brightnessLevel><contrastLevel>55</contrastLevel><hueLevel>50</hueLevel>"
      "</VideoInputChannel>";
  const std::string channels = "<VideoInputChannel version=\"1.0\">" + channel + "</VideoInputChannelList>";
  std::string root = "<VideoInput version=\"1.0\" xmlns=\"urn:psialliance-org\">";
  EXPECT_EQ(
      get("/PSIA/System/Video/inputs"),
      document(declaration + root + "<VideoInputChannelList version=\"1.0\">" + channels + "</VideoInput>"));
  root = "<VideoInputChannelList version=\"1.0\" xmlns=\"urn:psialliance-org\">";
  EXPECT_EQ(get("/PSIA/System/Video/inputs/channels"), document(declaration + root + channels));
  root = "<VideoInputChannel version=\"1.0\" xmlns=\"urn:psialliance-org\">";
  EXPECT_EQ(get(kUri), document(declaration + root + channel));

  const std::string start = "50hz</powerLineFrequencyMode><brightnessLevel>";
  run_sql("update VideoSource set PowerLineFrequency=1, Brightness=-3, Contrast=0 where VideoSourceID=0");
  EXPECT_TRUE(get(kUri).find(start + "-3</brightnessLevel><contrastLevel>0<") != std::string::npos);
  run_sql("delete from VideoSource where VideoSourceID=0");
  const std::string defaults = start + "50</brightnessLevel><contrastLevel>50</contrastLevel><hueLevel>50<";
  EXPECT_TRUE(get(kUri).find(defaults) != std::string::npos);
}

TEST_F(VideoInputsTest, ChangesGoToTheRowOfTheBodysIdAndSendCommand1) {
  const auto rows_after = [this](int source, const std::string& children) {
    EXPECT_EQ(put_with_daemon(kUri, "<videoInputChannel>" + children + "</videoInputChannel>", {1}),
              status(2, kUri));
    camera::Message expected;
    camera::put_integer(expected, 4, 1);
    camera::put_integer(expected, 12, source);
    EXPECT_EQ(messages.at(0).body, expected.body) << children;
    return rows("select * from VideoSource");
  };
  std::string children =
      "<id>1</id><inputPort>7</inputPort><powerLineFrequencyMode>60hz</powerLineFrequencyMode>"
      "<brightnessLevel>21</brightnessLevel><contrastLevel>22</contrastLevel><hueLevel>23</hueLevel>";
  EXPECT_EQ(rows_after(1, children), "0|60|55|50|2|0;1|21|22|23|1|0");
  const std::string spaces(126, ' ');  // 127 characters of a text count
  children = "<ID>" + spaces + "03</ID><hueLevel>9</hueLevel><HUELEVEL>" + spaces + "41</HUELEVEL>";
  EXPECT_EQ(rows_after(0, children), "0|0|0|4|2|0;1|21|22|23|1|0");
  EXPECT_EQ(rows_after(0, "<id>0</id>"), "0|0|0|0|2|0;1|21|22|23|1|0");
  EXPECT_EQ(rows_after(-1, "<contrastLevel>77</contrastLevel>"), "0|0|0|0|2|0;1|21|22|23|1|0");

  EXPECT_EQ(put(kUri, "<VideoInput><id>1</id></VideoInput>"), status(3, kUri));
  run_sql("create trigger refuse before update on VideoSource begin select raise(abort, 'no'); end");
  EXPECT_EQ(put(kUri, "<VideoInputChannel><id>1</id></VideoInputChannel>"), status(3, kUri));
  EXPECT_EQ(rows("select Hue from VideoSource"), "0;23");
}

}  // namespace
}  // namespace psia_tests
