// Device information with its fallbacks, the first use of a device without an identifier, and the status.
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <regex>

#include "tests/support/clock.h"
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

constexpr const char* kInfo = "/PSIA/System/deviceInfo";

/// The document of the factory state, the texts of some elements replaced.
std::string info_document(const std::map<std::string, std::string>& texts) {
  std::string body =
      "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n"
      "<DeviceInfo version=\"1.0\" xmlns=\"urn:psialliance-org\"><deviceName>camera-1</deviceName>"
      "<deviceID>6F1E0C52-93B7-4D2A-8E45-2a7d90b1c3f4</deviceID>"
      "<systemContact>http://www.quellan.example</systemContact><model>QC-2040 Dome</model>"
      "<serialNumber>QC2040-0007-4242</serialNumber><macAddress>02:51:43:20:40:0a</macAddress>"
      "<firmwareVersion>QC2040.1.4.2</firmwareVersion>"
      "<firmwareReleasedDate>1.4.2</firmwareReleasedDate></DeviceInfo>";
  for (const auto& [element, text] : texts) {
    const std::size_t start = body.find("<" + element + ">") + element.size() + 2;
    body.replace(start, body.find("</" + element) - start, text);
  }
  return document(body);
}

class DeviceInfoTest : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    unsetenv("HOSTNAME");  // of the machine that runs the tests
    start_service();
  }
};

TEST_F(DeviceInfoTest, ShowsWhatIsStoredOrItsFallback) {
  EXPECT_EQ(get(kInfo), info_document({}));
  run_sql("delete from Network");
  ASSERT_EQ(std::system("ip link set eth0 down && ip link set eth0 name gone"), 0);  // NOLINT(cert-env33-c)
  EXPECT_EQ(get(kInfo), info_document({{"deviceName", "(null)"}, {"macAddress", "00:00:00:00:00:00"}}));
  ASSERT_EQ(std::system("ip link set gone name eth0"), 0);  // NOLINT(cert-env33-c)
  EXPECT_EQ(call({.uri = kInfo, .variables = {{"HOSTNAME", "own"}}}), info_document({{"deviceName", "own"}}));
  EXPECT_EQ(stop_service(SIGTERM), 0);
  start_service({.environment = {{"HOSTNAME", "at-start"}}});
  EXPECT_EQ(get(kInfo), info_document({{"deviceName", "at-start"}}));
  const std::string text = std::string(15, 'a') + std::string(300, 'n');
  run_sql("update System set uuid='" + text + "'; insert into Network(DDNSHostname) values('" + text + "')");
  EXPECT_EQ(get(kInfo), info_document({{"deviceName", text}, {"deviceID", text.substr(0, 39)}}));
}

TEST_F(DeviceInfoTest, TheSerialNumberIsReadFromTheFactoryData) {
  const auto expect_serial = [this](const std::string& serial, const std::string& errors) {
    const fastcgi::Answer answer = begin({.uri = kInfo}).receive();
    EXPECT_EQ(answer.out, info_document({{"serialNumber", serial}}));
    EXPECT_EQ(answer.errors, errors);
  };
  const std::string factory_data = std::string(256, 'x') + std::string(31, 's');
  expect_serial(camera::kSerialNumber, "");
  const std::size_t descriptors = open_descriptors();
  write_file(camera::kFactoryData, factory_data + "tuv");
  expect_serial(std::string(31, 's'), "");
  write_file(camera::kFactoryData, factory_data);
  expect_serial("0", "eeprom read fail res=31, error=Success\n");
  unlink(camera::kFactoryData);
  ASSERT_EQ(mkfifo(camera::kFactoryData, 0600), 0);  // has no places to seek to
  expect_serial("0", "eeprom lseek fail res=[100:ffffffff], error=Illegal seek\n");
  unlink(camera::kFactoryData);
  expect_serial("0", "EEPROM OPEN: No such file or directory");
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(DeviceInfoTest, ANewIdentifierGoesIntoBothDatabasesAndEndsTheServicesUse) {
  run_sql("update System set uuid='aaaaaaaaaaaaaaaa-and-more'");
  const std::string answer = get(kInfo);
  const std::string id = rows("select uuid from System");
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9a-f]{12}");
  EXPECT_TRUE(std::regex_match(id, form)) << id;
  EXPECT_EQ(rows("select uuid from System", camera::kDefaultsDatabase), id);
  // The rest of this very document already goes without the database.
  EXPECT_EQ(answer, info_document({{"deviceID", id},
                                   {"model", "Quellan IP Camera"},
                                   {"firmwareVersion", "0.0.0.0"},
                                   {"firmwareReleasedDate", "000000"}}));
  EXPECT_EQ(get(kInfo), unauthorized());
  EXPECT_EQ(stop_service(SIGTERM), 0) << reported();
  start_service();

  // Without a defaults database the service goes on.
  unlink(camera::kDefaultsDatabase);
  ASSERT_EQ(mkdir(camera::kDefaultsDatabase, 0700), 0);
  run_sql("delete from System");
  EXPECT_NE(get(kInfo), get(kInfo));  // there is no row to keep the identifier
  EXPECT_NE(get(kInfo), unauthorized());
}

TEST_F(DeviceInfoTest, WritingStoresTheLastName) {
  for (const auto& [inside, stored] : std::vector<std::pair<std::string, std::string>>{
           {"<deviceName>cam1</deviceName><DEVICENAME>cam2</DEVICENAME><model>x</model>", "cam2"},
           {"<deviceName>&lt;" + std::string(40, 'n') + "</deviceName>", "<" + std::string(30, 'n')},
           {"", ""}}) {
    EXPECT_EQ(put(kInfo, "<deviceinfo>" + inside + "</deviceinfo>"), status(1, kInfo));
    EXPECT_EQ(rows("select DDNSHostname from Network"), stored) << inside;
  }
  for (const char* body : {"<Device/>", "<DeviceInfo><deviceName>it's</deviceName></DeviceInfo>"})
    EXPECT_EQ(put(kInfo, body), status(3, kInfo)) << body;
}

TEST_F(DeviceInfoTest, StatusShowsTimeAndUptime) {
  EXPECT_NE(get("/PSIA/System/status"), "");  // from here on the zone must be read anew
  const char* uptime = "/usr/local/orvid/uptime";
  for (const auto& [content, seconds] : std::vector<std::pair<std::string, std::string>>{
           {"12345.67 2345.12\n", "12345"},
           {"2147483648.5 1\n", "2147483647"},
           {"12345.67\n2345.12\n", "0"},
           {std::string(31, ' ') + "77 5\n", "77"},  // 35 characters count
           {std::string(32, ' ') + "77 5\n", "0"}}) {
    write_file(uptime, content);
    ASSERT_EQ(mount(uptime, "/proc/uptime", nullptr, MS_BIND, nullptr), 0);
    const std::time_t since = std::time(nullptr);
    const std::string answer = call({.uri = "/PSIA/System/status", .variables = {{"TZ", "AAA-5:30"}}});
    EXPECT_EQ(with_now(answer, since, 19800),
              document("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n"
                       "<DeviceStatus version=\"1.0\" xmlns=\"urn:psialliance-org\"><currentDeviceTime>"
                       "YYYY-MM-DDThh:mm:ss</currentDeviceTime><deviceUpTime>" +
                       seconds + "</deviceUpTime></DeviceStatus>"));
    ASSERT_EQ(umount2("/proc/uptime", MNT_DETACH), 0);
  }
}

}  // namespace
}  // namespace psia_tests
