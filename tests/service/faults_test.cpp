// What is left of a request when one of its operations fails: one documented answer, no value that was not
// sent, a database that is whole, and a next request that is right. Then the same for a process that is
// killed.
#include <sys/msg.h>

#include <csignal>
#include <deque>
#include <random>

#include "tests/support/fault_test.h"

namespace psia_tests {
namespace {

struct Case {
  const char* method;
  const char* uri;
  std::string body = {};                         ///< in brief
  const char* watched = "select * from System";  ///< all that the request may change
  const char* stored = nullptr;                  ///< what that gives after a change
  int messages = 0;
  bool any_ok = false;  ///< an Event resource: its changes are answered with ok whatever the statements gave
};

const std::vector<Case> kCases = {
    {"GET", "/PSIA/System/deviceInfo"},
    {"GET", "/PSIA/Security/AAA/users"},
    {"GET", "/PSIA/Streaming/channels"},
    {"GET", "/PSIA/System/Network/interfaces"},
    {"PUT", "/PSIA/Security/AAA/users/operator", "User(password=sent)",
     "select Password from User where UserID='operator'", "sent"},
    {"PUT", "/PSIA/Security/AAA/users", "UserList(User(userName=viewer password=sent))",
     "select Password from User where UserID='viewer'", "sent"},
    {"POST", "/PSIA/Security/AAA/users", "User(userName=new password=sent)",
     "select * from User where UserID='new'", "new|sent|2"},
    {"DELETE", "/PSIA/Security/AAA/users/guest", "", "select UserID from User where Level=3", "anonymous"},
    {"PUT", "/PSIA/System/deviceInfo", "DeviceInfo(deviceName=sent)", "select DDNSHostname from Network",
     "sent"},
    {"PUT", "/PSIA/System/time/ntpServers",
     "NTPServerList(NTPServer(addressingFormatType=hostname hostName=sent))", "select NTPServer from Network",
     "sent"},
    {"PUT", "/PSIA/System/time/timeZone", "\"CET-1\"", "select TimeZone from Network", "Africa/Algiers", 1},
    {"PUT", "/PSIA/System/Network/interfaces/eth0/ipAddress",
     "IPAddress(ipVersion=v4 addressingType=static ipAddress=10.0.0.7 subnetMask=m DefaultGateway(ipAddress=g))",
     "select IPAddress, SubnetMask, Gateway from Network", "10.0.0.7|m|g", 2},
    {"PUT", "/PSIA/System/Audio/channels/1", "AudioChannel(enabled=false)", "select * from Audio", "0|0|0|0",
     1},
    {"PUT", "/PSIA/System/Video/inputs/channels/1",
     "VideoInputChannel(id=0 brightnessLevel=11 contrastLevel=22 hueLevel=33)",
     "select Brightness, Contrast, Hue from VideoSource", "11|22|33", 1},
    {"PUT", "/PSIA/Streaming/channels/1",
     "StreamingChannel(Transport(rtspPortNo=554) Video(constantBitRate=77))",
     "select Bitrate from VideoEncoder where VideoEncoderID=0", "77", 1},
    {"PUT", "/PSIA/Custom/Event/schedule",
     "EventSchedule(TimeBlockList(TimeBlock(dayOfWeek=1 TimeRange(beginTime=06:00:00 endTime=07:00:00))))",
     "select Week, StartTime, EndTime from Event", "2|600|0"},
    {"PUT", "/PSIA/Custom/Event/triggers/Sensor-0",
     "EventTrigger(id=Sensor-0 intervalBetweenEvents=9 EventTriggerNotificationList(EventTriggerNotification(id=FTP-1 "
     "notificationMethod=FTP)))",
     "select IgnoreInterval from Event", "9", 0, true},
    {"PUT", "/PSIA/Custom/Event/notification/mailing/Mail-1",
     "MailingNotification(id=Mail-1 hostName=sent.example)", "select Alias, Address from SMTPServer",
     "Mail-1|sent.example", 0, true},
};

class FaultsTest : public FaultTest {
 protected:
  /// Sends the request, to which the daemons' replies wait already, and leaves the messages it sent in
  /// `sent_`.
  std::string serve(const Case& request) {
    for (int i = 0; i < request.messages; ++i)
      EXPECT_TRUE(camera::send_reply({.type = service_pid}));
    std::string answer = call({.method = request.method, .uri = request.uri, .body = xml(request.body)});
    sent_ = 0;
    while (camera::receive_message())
      ++sent_;
    camera::Message reply;
    while (msgrcv(msgget(camera::kReplyQueueKey, 0), &reply, sizeof reply.body, 0, IPC_NOWAIT) >= 0) {
    }
    return answer;
  }

  /// Has the request's operations of a kind fail one after the other, `fail` at a time; returns how many
  /// there were.
  int try_each(const Case& request, FaultKind kind, int fail) {
    for (int skip = 0;; ++skip) {
      EXPECT_EQ(camera::restore_factory_rows(), "");
      const std::string before = rows(request.watched);
      const std::string stored = request.stored == nullptr ? before : request.stored;
      plan_fault(kind, skip, fail);
      const std::string answer = serve(request);
      plan->kind = kNoFault;
      if (plan->fail == fail) return skip;  // the request has no more of them
      SCOPED_TRACE(std::string(request.method) + " " + request.uri + ", kind " + std::to_string(kind) +
                   ", operation " + std::to_string(skip));
      const std::string after = rows(request.watched);
      // Without memory for it there is no answer. Of a list of users each failure is told, then the end.
      const bool ok = answer == good_;
      EXPECT_TRUE(ok || answer == unauthorized() || (answer.empty() && kind == kMemory) ||
                  (request.stored == nullptr ? answer.find("\r\n\r\n<?xml") != std::string::npos
                                             : answer == status(3, request.uri) ||
                                                   answer == status(3, request.uri) + status(1, request.uri)))
          << answer;
      EXPECT_TRUE(after == stored || (after == before && (!ok || request.any_ok)))
          << after << " from " << before;
      EXPECT_TRUE(sent_ == 0 || after == stored);
      EXPECT_EQ(rows("pragma integrity_check"), "ok");
      EXPECT_EQ(camera::restore_factory_rows(), "");
      EXPECT_EQ(serve(request), good_);
      EXPECT_EQ(rows(request.watched), stored);
    }
  }

  int sent_ = 0;      // messages of the last request
  std::string good_;  // the answer to the request when nothing fails
};

TEST_F(FaultsTest, NoFailedOperationChangesWhatWasNotAskedFor) {
  plan->speed = 100;  // for locks that are waited for
  int tried = 0;
  for (const Case& request : kCases) {
    good_ = serve(request);
    EXPECT_TRUE(request.stored == nullptr || good_ == status(1, request.uri)) << request.uri;
#if !defined(__SANITIZE_ADDRESS__)  // which needs the allocations for itself
    tried += try_each(request, kMemory, 1);
#endif
    // Seven attempts to lock fail: one statement gives up.
    for (const auto& [kind, fail] : {std::pair{kLock, 7}, {kWrite, 1}, {kSync, 1}})
      tried += try_each(request, kind, fail);
  }
  EXPECT_GT(tried, 100);
}

TEST_F(FaultsTest, AKilledServiceLeavesTheDatabaseWhole) {
  const std::string list = xml(for_each("operator\nviewer\nguest", "User(userName=$1 password=sent)"));
  std::minstd_rand random;  // the same pauses each time
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(camera::restore_factory_rows(), "");
    const fastcgi::Connection writing = begin({.method = "PUT",
                                               .uri = "/PSIA/Security/AAA/users",
                                               .body = "<UserList>" + list + list + "</UserList>"});
    usleep(static_cast<useconds_t>(random() % 4000));
    EXPECT_EQ(stop_service(SIGKILL), 128 + SIGKILL);
    EXPECT_EQ(rows("pragma integrity_check"), "ok");
    EXPECT_EQ(rows("select count(*) from User where Password not in (UserID, 'sent', '')"), "0");
    start_with_plan();
    EXPECT_EQ(put("/PSIA/Security/AAA/users", "<UserList>" + list + "</UserList>"),
              status(1, "/PSIA/Security/AAA/users"));
    EXPECT_EQ(rows("select count(*) from User where Password='sent'"), "3");
  }
}

TEST_F(FaultsTest, AnswersToParallelRequestsAreNotMixedUp) {
  const auto uri = [](std::size_t i) { return "/PSIA/" + std::string(100 * i, 'x') + std::to_string(i); };
  std::deque<fastcgi::Connection> connections;
  for (std::size_t i = 0; i < 64; ++i)
    connections.push_back(begin({.uri = uri(i), .user = i % 8 == 0 ? "admin:wrong" : "admin:admin"}));
  for (std::size_t i = 0; i < 64; ++i) {
    const std::string answer = connections.front().receive().out;
    EXPECT_TRUE(same(answer, i % 8 == 0 ? unauthorized() : status(4, uri(i))));
    connections.pop_front();  // libfcgi waits 2 s for a peer that does not close
  }
}

}  // namespace
}  // namespace psia_tests
