// Reboot and factory reset as the daemons see them; the settings file on its way out and in.
#include <sys/mount.h>

#include <algorithm>
#include <filesystem>

#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

constexpr const char* kConfiguration = "/PSIA/System/configurationData";
const std::string kDirectory = std::string(camera::kExchangeDirectory) + "/";

class MaintenanceTest : public RunningServiceTest {
 protected:
  /// The download when a reply with `result` and the file's `name` lies ready.
  std::string download(const std::string& name, int result = 0) {
    camera::Message reply = camera::reply_to({.type = service_pid}, result);
    std::copy(name.begin(), name.end(), reply.body.begin() + 8);
    EXPECT_TRUE(camera::send_reply(reply));
    std::string answer = call({.uri = kConfiguration});
    EXPECT_EQ(camera::command_of(expect_message()), 11);
    return answer;
  }
};

/// A settings file, of which no two pieces of 1024 bytes are alike.
std::string settings(int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i)
    bytes += static_cast<char>(i * 7 + i / 256);
  return bytes;
}

TEST_F(MaintenanceTest, RebootAndFactoryResetSendTheirCommand) {
  const std::string reset = "/PSIA/System/factoryReset";
  struct Case {
    std::string uri;
    int command, code;
    std::vector<int> results;  // none where nothing is sent
  };
  for (const auto& [uri, command, code, results] : std::vector<Case>{
           {"/PSIA/System/reboot", 8, 1, {0}},
           {reset + "?mode=FULL", 10, 3, {2}},
           {reset + "?MODE=basic", 10, 1, {0}},
           {reset + "?MODE=xULL=F", 10, 1, {0}},  // the second value is written over the first
           {reset + "?MODE=FULL=B", 10, 3, {}},   // BULL
           {reset + "?MODE=FULL" + std::string(246, '=') + "X", 10, 1, {0}},  // the 256th character
           {reset + "?MODE=FULL" + std::string(245, '=') + "X", 10, 3, {}},
           {reset, 10, 5, {}},
           {reset + "?", 10, 5, {}},
           {reset + "?MODE=FULL&x", 10, 3, {}},
           {reset + "?MODES=FULL", 10, 3, {}},
           {reset + "?MODE=" + std::string(200, 'F'), 10, 3, {}}}) {
    EXPECT_EQ(put_with_daemon(uri, "not read", results), status(code, uri));
    camera::Message expected;
    camera::put_integer(expected, 4, command);
    EXPECT_TRUE(messages.empty() || messages.at(0).body == expected.body) << uri;
  }
}

TEST_F(MaintenanceTest, TheExportedFileIsSentWithItsOwnHeader) {
  const std::string header = "Content-Type: application/octet-stream\nContent-length: ";
  for (const int size : {1, 1024, 2500}) {
    write_file(kDirectory + "export-%s.dat", settings(size));
    EXPECT_EQ(download("export-%s.dat"), header + std::to_string(size) + "\n\n" + settings(size));
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
    EXPECT_EQ(download(name), status(3, kConfiguration)) << name;
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(MaintenanceTest, TheUploadIsStoredAsItIs) {
  Call upload{.method = "PUT", .uri = kConfiguration, .body = settings(2500)};
  // The announced length, the answer's code, the size of what is then stored. A body cut off on its way is
  // kept in whole pieces of 1024 bytes; at most 64 MiB may be announced.
  const int cases[][3] = {{2500, 1, 2500},     {9999, 1, 2048},     {1500, 1, 1500},
                          {67108865, 3, 1500}, {67108864, 1, 2048}, {0, 1, 0}};
  for (const auto& [announced, code, stored] : cases) {
    upload.variables["CONTENT_LENGTH"] = std::to_string(announced);
    EXPECT_EQ(call(upload), status(code, kConfiguration)) << announced;
    EXPECT_EQ(read_file(kDirectory + "psia_config.dat"), settings(stored)) << announced;
  }
  // No room: the write fails, or only the close.
  ASSERT_EQ(mount("tmpfs", camera::kExchangeDirectory, "tmpfs", 0, "size=16k"), 0);
  EXPECT_EQ(put(kConfiguration, settings(300000)), status(3, kConfiguration));
  EXPECT_EQ(put(kConfiguration, settings(18000)), status(3, kConfiguration));
  ASSERT_EQ(umount(camera::kExchangeDirectory), 0) << "a file was left open";
  std::filesystem::remove_all(camera::kExchangeDirectory);
  EXPECT_EQ(put(kConfiguration, "new"), status(3, kConfiguration));
}

}  // namespace
}  // namespace psia_tests
