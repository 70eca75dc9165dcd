// The handlers of a single notification, which no request reaches.
#include <fcgi_stdio.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <regex>
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

  /// What the handler writes.
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

  /// The links to a relay, an FTP and a mail server after a request to the handler. Before it each is 8.
  std::string links_after(void (*handler)(Context&, const Request&), const std::string& tail,
                          const std::string& body = "") {
    EXPECT_TRUE(database_.execute("update Event set RelayID=8, FTPServerID=8, SMTPServerID=8"));
    EXPECT_NE(run(handler, tail, body).find("<statusString>OK<"), std::string::npos);
    const Rows rows =
        database_.query("select RelayID || ' ' || FTPServerID || ' ' || SMTPServerID from Event");
    return rows.text(0, 0);
  }

  Environment environment_;
  Database database_;
  std::optional<ControlQueues> queues_ = ControlQueues::open();
  TzPairListOwner zones_{tz_pair_list_create()};
  IndexDocuments index_documents_;
};

// With a relay the document also shows the FTP and mail links, with an FTP server the mail link.
TEST_F(NotificationTest, ADocumentShowsTheNotificationThatTheUrlNamesAndLinksOfLaterKinds) {
  const auto shown_ids = [this](const Links& links, const std::string& id) {
    EXPECT_TRUE(database_.execute("update Event set RelayID=%d, FTPServerID=%d, SMTPServerID=%d", links.relay,
                                  links.ftp, links.mail));
    const std::string document = run(read_notification, "Sensor-0/notifications/" + id);
    const std::regex ids("<id>([^<]*)");
    std::string found;
    for (std::sregex_iterator at(document.begin(), document.end(), ids), end; at != end; ++at)
      found += at->str(1) + " ";
    return found;
  };
  const Links all = {.relay = 2, .ftp = 1, .mail = 1};
  EXPECT_EQ(shown_ids(all, "Relay-1"), "Relay-1 FTP-1 Mail-1 ");  // the relay named, not the one linked
  EXPECT_EQ(shown_ids(all, "FTP-1"), "FTP-1 Mail-1 ");
  EXPECT_EQ(shown_ids(all, "Mail-1"), "Mail-1 ");
  EXPECT_EQ(shown_ids(all, "Sensor-0"), "");  // no row of Relay, though one of SensorRelay
  const Links only_ftp = {.ftp = 1};
  EXPECT_EQ(shown_ids(only_ftp, "Relay-1"), "");
  EXPECT_EQ(shown_ids(only_ftp, "Mail-1"), "");
  EXPECT_NE(run(read_notification, "Relay-1/notifications/FTP-1").find("<statusCode>4<"), std::string::npos);
}

TEST_F(NotificationTest, AChangeSetsTheLinkThatTheBodyNames) {
  EXPECT_EQ(links_after(write_notification, "Sensor-0/notifications/Relay-1",
                        "<EventTriggerNotification>"
                        "<id>FTP-1</id><notificationMethod>FTP</notificationMethod>"
                        "</EventTriggerNotification>"),
            "8 1 8");
}

TEST_F(NotificationTest, ADeletionSetsTheLinkThatTheUrlNames) {
  EXPECT_EQ(links_after(remove_notification, "Sensor-0/notifications/Relay-2"), "2 8 8");
  EXPECT_EQ(links_after(remove_notification, "Sensor-0/notifications/Mail-1"), "8 8 1");
}

}  // namespace
}  // namespace psia
