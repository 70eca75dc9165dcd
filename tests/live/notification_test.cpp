// The handlers of a single notification, which no request reaches.
#include <fcgi_stdio.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "context.h"
#include "core/paths.h"
#include "event/linked_notifications.h"
#include "for_other_programs/single_notification.h"
#include "index/index_documents.h"
#include "system/time_zone_table.h"

namespace psia {
namespace {

class NotificationTest : public testing::Test {
 protected:
  void SetUp() override {
    static const bool accepted = FCGI_Accept() >= 0;  // as a plain CGI program
    ASSERT_TRUE(accepted && queues_ && database_.open(kConfigurationDatabase));
  }

  /// What a handler writes that is called for the end of a URL and a body.
  std::string run(void (*handler)(Context&, const Request&), const std::string& tail,
                  const std::string& body = "") {
    std::ofstream("/usr/local/body") << body;
    close(STDIN_FILENO);
    EXPECT_EQ(open("/usr/local/body", O_RDONLY), STDIN_FILENO);
    Context context{environment_, database_, *queues_, *zones_, index_documents_};
    testing::internal::CaptureStdout();
    handler(context, {"/u", "", std::to_string(body.size()).c_str(), 0, tail.c_str()});
    return testing::internal::GetCapturedStdout();
  }

  void link(int relay, int ftp_server, int mail_server) {
    EXPECT_TRUE(database_.execute("update Event set RelayID=%d, FTPServerID=%d, SMTPServerID=%d", relay,
                                  ftp_server, mail_server));
  }

  std::string links() {
    const Rows row =
        database_.query("select RelayID || ' ' || FTPServerID || ' ' || SMTPServerID from Event");
    return row.text(0, 0);
  }

  /// The ids in the document of a notification.
  std::string shown(const std::string& id) {
    const std::string document = run(read_notification, "Sensor-0/notifications/" + id);
    std::string ids;
    for (std::size_t at = 0; (at = document.find("<id>", at)) != std::string::npos; ++at)
      ids += document.substr(at + 4, document.find('<', at + 4) - at - 4) + " ";
    return ids;
  }

  Environment environment_;
  Database database_;
  std::optional<ControlQueues> queues_ = ControlQueues::open();
  TzPairListOwner zones_{tz_pair_list_create()};
  IndexDocuments index_documents_;
};

// With a relay the document also shows the FTP and mail links, with an FTP server the mail link.
TEST_F(NotificationTest, ADocumentShowsTheNotificationThatTheUrlNamesAndLinksOfLaterKinds) {
  link(2, 1, 1);
  EXPECT_EQ(shown("Relay-1"), "Relay-1 FTP-1 Mail-1 ");  // the relay named, not the one linked
  EXPECT_EQ(shown("FTP-1"), "FTP-1 Mail-1 ");
  EXPECT_EQ(shown("Mail-1"), "Mail-1 ");
  EXPECT_EQ(shown("Sensor-0"), "");  // the table SensorRelay has it, as it has relays; Relay has not
  link(kNoLink, 1, kNoLink);         // FTP-1 alone: the others are not shown, though they exist
  EXPECT_EQ(shown("Relay-1") + shown("Mail-1"), "");
  // FTP-1 is linked, but Relay-1 is no trigger.
  EXPECT_NE(run(read_notification, "Relay-1/notifications/FTP-1").find("<statusCode>4<"), std::string::npos);
}

TEST_F(NotificationTest, AChangeSetsTheLinkThatTheBodyNames) {
  link(8, 8, 8);
  (void)run(write_notification, "Sensor-0/notifications/Relay-1",
            "<EventTriggerNotification>"
            "<id>FTP-1</id><notificationMethod>FTP</notificationMethod>"
            "</EventTriggerNotification>");
  EXPECT_EQ(links(), "8 1 8");  // FTP-1 has number 1
}

TEST_F(NotificationTest, ADeletionSetsTheLinkThatTheUrlNames) {
  link(8, 8, 8);
  EXPECT_NE(run(remove_notification, "Sensor-0/notifications/Relay-2").find(">OK<"), std::string::npos);
  EXPECT_EQ(links(), "2 8 8");
  (void)run(remove_notification, "Sensor-0/notifications/Mail-1");
  EXPECT_EQ(links(), "2 8 1");
}

}  // namespace
}  // namespace psia
