// Device information and status, reboot, reset and the settings file, the NTP server.
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <regex>

#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

const std::string kInfo = "/PSIA/System/deviceInfo";
const std::string kConfiguration = "/PSIA/System/configurationData";
const std::string kIdentifier = "6F1E0C52-93B7-4D2A-8E45-2a7d90b1c3f4";
const std::string kDirectory = std::string(camera::kExchangeDirectory) + "/";

const std::string kFactory =
    kXml + xml("DeviceInfo!(deviceName=camera-1 deviceID=" + kIdentifier +
               " systemContact=http://www.quellan.example model=`QC-2040 Dome` serialNumber=QC2040-0007-4242 "
               "macAddress=02:51:43:20:40:0a firmwareVersion=QC2040.1.4.2 firmwareReleasedDate=1.4.2)");

class DeviceTest : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    unsetenv("HOSTNAME");  // of the machine that runs the tests
    start_service();
  }

  /// The document of the factory state with some changes.
  static std::string info_document(const Pairs& changes) { return document(replaced(kFactory, changes)); }
};

TEST_F(DeviceTest, InformationShowsWhatIsStoredOrItsFallback) {
  const auto expect_info = [this](const std::string& change, const Pairs& texts) {
    restore_settings();
    run_sql(change);
    EXPECT_TRUE(same(get(kInfo), info_document(texts))) << change;
  };
  const std::string text = std::string(15, 'a') + std::string(300, 'n');
  expect_info("update Network set DDNSHostname=null", {{"camera-1", ""}});
  expect_info("update System set uuid='" + text + "'; update Network set DDNSHostname='" + text + "'",
              {{"camera-1", text}, {kIdentifier, text.substr(0, 39)}});
  // Pairs of percent signs become one where a document is put together, and again where it is sent.
  expect_info("update System set ModelName='a%', ModelID='%%%%', Version='%%%%%z'",
              {{"QC-2040 Dome", "a%"}, {">QC2040.", ">%."}, {"1.4.2", "%%z"}});
  for (const auto& [sent, seen] : Pairs{{"%", "%"}, {"%%%", "%"}, {"%%%%%n", "%%n"}})
    EXPECT_EQ(get("/PSIA/" + sent), status(4, "/PSIA/" + seen));

  ASSERT_EQ(std::system("ip link set eth0 down && ip link set eth0 name gone"), 0);  // NOLINT(cert-env33-c)
  expect_info("delete from Network", {{"camera-1", "(null)"}, {"02:51:43:20:40:0a", "00:00:00:00:00:00"}});
  ASSERT_EQ(std::system("ip link set gone name eth0"), 0);  // NOLINT(cert-env33-c)
  EXPECT_EQ(call({.uri = kInfo, .variables = {{"HOSTNAME", "own"}}}), info_document({{"camera-1", "own"}}));
  EXPECT_EQ(stop_service(SIGTERM), 0);
  start_service({.environment = {{"HOSTNAME", "at-start"}}});
  EXPECT_EQ(get(kInfo), info_document({{"camera-1", "at-start"}}));
}

TEST_F(DeviceTest, TheSerialNumberIsReadFromTheFactoryData) {
  const auto expect_serial = [this](const std::string& serial, const std::string& errors) {
    const fastcgi::Answer answer = exchange({.uri = kInfo});
    EXPECT_TRUE(same(answer.out, info_document({{camera::kSerialNumber, serial}})));
    EXPECT_EQ(answer.errors, errors);
  };
  const std::string factory_data = std::string(256, 'x') + std::string(31, 's');
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

TEST_F(DeviceTest, ANewIdentifierGoesIntoBothDatabasesAndEndsTheServicesUse) {
  run_sql("update System set uuid='aaaaaaaaaaaaaaaa-and-more'");
  const std::string answer = get(kInfo);
  const std::string id = rows("select uuid from System");
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9a-f]{12}");
  EXPECT_TRUE(std::regex_match(id, form)) << id;
  EXPECT_EQ(rows("select uuid from System", camera::kDefaultsDatabase), id);
  // The rest of this very document already goes without the database.
  EXPECT_TRUE(same(answer, info_document({{kIdentifier, id},
                                          {"QC-2040 Dome", "Quellan IP Camera"},
                                          {"QC2040.1.4.2", "0.0.0.0"},
                                          {"1.4.2", "000000"}})));
  EXPECT_EQ(get(kInfo), unauthorized());
  EXPECT_EQ(stop_service(SIGTERM), 0) << reported();
  start_service();

  // Without a defaults database the service goes on.
  unlink(camera::kDefaultsDatabase);
  ASSERT_EQ(mkdir(camera::kDefaultsDatabase, 0700), 0);
  for (const char* statement : {"delete from System", "drop table System"}) {
    run_sql(statement);
    EXPECT_NE(get(kInfo), get(kInfo));  // there is nowhere to keep the identifier
    EXPECT_NE(get(kInfo), unauthorized());
  }
}

TEST_F(DeviceTest, StatusShowsTimeAndUptime) {
  EXPECT_NE(get("/PSIA/System/status"), "");  // from here on the zone must be read anew
  const std::string uptime = "/usr/local/orvid/uptime";
  for (const auto& [content, seconds] : Pairs{{"2147483648.5 1\n", "2147483647"},
                                              {"12345.67\n2345.12\n", "0"},
                                              {std::string(31, ' ') + "77 5\n", "77"},  // 35 characters count
                                              {std::string(32, ' ') + "77 5\n", "0"}}) {
    write_file(uptime, content);
    ASSERT_EQ(mount(uptime.c_str(), "/proc/uptime", nullptr, MS_BIND, nullptr), 0);
    const std::time_t since = std::time(nullptr);
    const std::string answer = call({.uri = "/PSIA/System/status", .variables = {{"TZ", "AAA-5:30"}}});
    ASSERT_EQ(umount2("/proc/uptime", MNT_DETACH), 0);
    EXPECT_TRUE(same(
        with_now(answer, since, 19800),
        document(kXml + xml("DeviceStatus!(currentDeviceTime=" + kNow + " deviceUpTime=" + seconds + ")"))));
  }
}

class SettingsTest : public RunningServiceTest {};

/// A settings file, of which no two pieces of 1024 bytes are alike.
std::string settings(int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i)
    bytes += static_cast<char>(i * 7 + i / 256);
  return bytes;
}

TEST_F(SettingsTest, RebootAndFactoryResetSendTheirCommand) {
  // The second value is written over the first; 255 characters count.
  expect_effects("E245 := " + std::string(245, '=') + "\nF200 := " + std::string(200, 'F') + R"(
PUT /PSIA/System/reboot "not read" <- 7 => message 8; status 3
RESET := /PSIA/System/factoryReset
PUT RESET?mode=FULL <- 2 => message 10; status 3
PUT RESET?{MODE=basic|MODE=xULL=F|MODE=FULL=E245X} => message 10; status 1
PUT RESET?{MODE=FULL=B|MODE=FULLE245X|MODE=FULL&x|MODES=FULL|MODE=F200} => status 3
PUT {RESET|RESET?} => status 5
)");
}

TEST_F(SettingsTest, TheExportedFileIsSentWithItsOwnHeader) {
  const auto download = [this](const std::string& name, int result = 0) {  // when the reply names this file
    camera::Message reply = camera::reply_to({.type = service_pid}, result);
    std::copy(name.begin(), name.end(), reply.body.begin() + 8);
    EXPECT_TRUE(camera::send_reply(reply));
    std::string answer = call({.uri = kConfiguration});
    EXPECT_EQ(camera::command_of(expect_message()), 11);
    return answer;
  };
  const std::string header = "Content-Type: application/octet-stream\nContent-length: ";
  for (const int size : {1, 1024, 2500}) {
    write_file(kDirectory + "export-%s.dat", settings(size));
    EXPECT_TRUE(download("export-%s.dat") == header + std::to_string(size) + "\n\n" + settings(size)) << size;
  }
  EXPECT_EQ(download("export-%s.dat", 1), status(3, kConfiguration));
  // A path of 1023 characters is taken whole; the 1024th is cut off.
  write_file(kDirectory + "x", "found");
  EXPECT_EQ(download(std::string(1023 - kDirectory.size() - 1, '/') + "xy"), header + "5\n\nfound");
  // A file that turns out shorter ends the answer: this one says that it has a page's size.
  EXPECT_EQ(download("../../../../../../sys/class/net/lo/mtu"),
            header + std::to_string(getpagesize()) + "\n\n");

  write_file(kDirectory + "empty", "");
  const std::size_t descriptors = open_descriptors();
  for (const std::string& name : std::vector<std::string>{"missing", "", "empty", std::string(4104, 'n')})
    EXPECT_EQ(download(name), status(3, kConfiguration)) << name.substr(0, 9);
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(SettingsTest, TheUploadIsStoredAsItIs) {
  Call upload{.method = "PUT", .uri = kConfiguration, .body = settings(2500)};
  // A body cut off on its way is kept in whole pieces of 1024 bytes; at most 64 MiB may be announced.
  for (const auto& [announced, stored] : std::vector<std::pair<int, int>>{
           {2500, 2500}, {9999, 2048}, {1500, 1500}, {67108865, -1}, {67108864, 2048}, {0, 0}, {-1, -1}}) {
    upload.variables["CONTENT_LENGTH"] = std::to_string(announced);
    write_file(kDirectory + "psia_config.dat", "before");
    EXPECT_EQ(effect(upload), stored < 0 ? "status 3" : "status 1") << announced;
    EXPECT_TRUE(read_file(kDirectory + "psia_config.dat") == (stored < 0 ? "before" : settings(stored)))
        << announced;
  }
  // No room: the write fails, or only the close.
  ASSERT_EQ(mount("tmpfs", camera::kExchangeDirectory, "tmpfs", 0, "size=16k"), 0);
  for (const int size : {300000, 18000})
    EXPECT_EQ(effect({.method = "PUT", .uri = kConfiguration, .body = settings(size)}), "status 3");
  ASSERT_EQ(umount(camera::kExchangeDirectory), 0) << "a file was left open";
  std::filesystem::remove_all(camera::kExchangeDirectory);
  EXPECT_EQ(effect({.method = "PUT", .uri = kConfiguration, .body = "new"}), "status 3");
}

TEST_F(SettingsTest, TheStoredNtpServerIsShownAsAnAddressOrAName) {
  expect_documents("N31 := " + std::string(31, '1') + R"(
ADDRESS := /PSIA/System/time/ntpServers => NTPServerList!(NTPServer'(id=1 addressingFormatType=ipaddress ipAddress=
NAME := /PSIA/System/time/ntpServers => NTPServerList!(NTPServer'(id=1 addressingFormatType=hostname hostName=
update Network set NTPServer='t<i>.example' :: NAMEt<i>.example portNo=123))
update Network set NTPServer='0123456789.' :: ADDRESS0123456789. portNo=123))
update Network set NTPServer='10:0' :: NAME10:0 portNo=123))
update Network set NTPServer='10/0' :: NAME10/0 portNo=123))
update Network set NTPServer='N31x' :: ADDRESSN31 portNo=123))
update Network set NTPServer=null :: ADDRESS portNo=123))
delete from Network :: NAMEpool.ntp.org portNo=123))
)");
}

TEST_F(SettingsTest, DeviceNameAndNtpServerAreStored) {
  expect_effects("N31 := " + std::string(31, 'n') + R"(
PUT /PSIA/System/deviceInfo deviceinfo(deviceName=cam1 DEVICENAME=&lt;cam model=x) => Network DDNSHostname=<cam; status 1
DeviceInfo(deviceName=N31&lt;) => Network DDNSHostname=N31; status 1
DeviceInfo() => Network DDNSHostname=; status 1
{Device()|DeviceInfo(deviceName=it's)} => status 3
always := update Network set NTPServer='before'
ADDRESS := addressingFormatType=hostname hostName=h ipAddress=1.2.3.4
PUT /PSIA/System/time/ntpServers/7 ntpserver(ADDRESS) => Network NTPServer=1.2.3.4; status 1
NTPServer(ADDRESS addressingFormatType=nTp) => Network NTPServer=h; status 1
NTPServer(ipAddress=1.2.3.4) => Network NTPServer=; status 1
{NTPServer(HOSTNAME=a hostName=N31x)|NTPServer(ADDRESS ipAddress=N31x)} => Network NTPServer=N31; status 1
{NTPServer(hostName=it's)|NTPServerList(NTPServer(hostName=h))} => status 3
PUT /PSIA/System/time/ntpServers ntpserverLIST(NTPServer(hostName=a) ntpserver(ADDRESS) NTPServer()) =>
 Network NTPServer=h; status 1
{NTPServerList(NTPServer(ipAddress=1.2.3.4))|NTPServerList(hostName=h)} => Network NTPServer=; status 1
{NTPServer(hostName=h)|NTPServerList(NTPServer(hostName=it's))} => status 3
)");
}

}  // namespace
}  // namespace psia_tests
