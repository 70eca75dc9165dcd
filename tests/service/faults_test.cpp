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
  std::string body = {};
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
    {"PUT", "/PSIA/Security/AAA/users/operator", "<User><password>sent</password></User>",
     "select Password from User where UserID='operator'", "sent"},
    {"PUT", "/PSIA/Security/AAA/users",
     "<UserList><User><userName>viewer</userName><password>sent</password></User></UserList>",
     "select Password from User where UserID='viewer'", "sent"},
    {"POST", "/PSIA/Security/AAA/users", "<User><userName>new</userName><password>sent</password></User>",
     "select * from User where UserID='new'", "new|sent|2"},
    {"DELETE", "/PSIA/Security/AAA/users/guest", "", "select UserID from User where Level=3", "anonymous"},
    {"PUT", "/PSIA/System/deviceInfo", "<DeviceInfo><deviceName>sent</deviceName></DeviceInfo>",
     "select DDNSHostname from Network", "sent"},
    {"PUT", "/PSIA/System/time/ntpServers",
     "<NTPServerList><NTPServer><addressingFormatType>hostname</addressingFormatType><hostName>sent</hostName>"
     "</NTPServer></NTPServerList>",
     "select NTPServer from Network", "sent"},
    {"PUT", "/PSIA/System/time/timeZone", "CET-1", "select TimeZone from Network", "Africa/Algiers", 1},
    {"PUT", "/PSIA/System/Network/interfaces/eth0/ipAddress",
     "<IPAddress><ipVersion>v4</ipVersion><addressingType>static</addressingType><ipAddress>192.168.1.77</ipAddress>"
     "<subnetMask>255.255.255.0</subnetMask><DefaultGateway><ipAddress>192.168.1.1</ipAddress></DefaultGateway>"
     "<PrimaryDNS><ipAddress>192.168.1.2</ipAddress></PrimaryDNS></IPAddress>",
     "select IPAddress, SubnetMask, Gateway from Network", "192.168.1.77|255.255.255.0|192.168.1.1", 2},
    {"PUT", "/PSIA/System/Audio/channels/1", "<AudioChannel><enabled>false</enabled></AudioChannel>",
     "select * from Audio", "0|0|0|0", 1},
    {"PUT", "/PSIA/System/Video/inputs/channels/1",
     "<VideoInputChannel><id>0</id><brightnessLevel>11</brightnessLevel><contrastLevel>22</contrastLevel><hueLevel>33</hueLevel>"
     "</VideoInputChannel>",
     "select Brightness, Contrast, Hue from VideoSource", "11|22|33", 1},
    {"PUT", "/PSIA/Streaming/channels/1",
     "<StreamingChannel><Transport><rtspPortNo>554</rtspPortNo></Transport><Video><constantBitRate>77</constantBitRate>"
     "</Video></StreamingChannel>",
     "select Bitrate from VideoEncoder where VideoEncoderID=0", "77", 1},
    {"PUT", "/PSIA/Custom/Event/schedule",
     "<EventSchedule><TimeBlockList><TimeBlock><dayOfWeek>1</dayOfWeek><TimeRange><beginTime>06:00:00</beginTime>"
     "<endTime>07:00:00</endTime></TimeRange></TimeBlock></TimeBlockList></EventSchedule>",
     "select Week, StartTime, EndTime from Event", "2|600|0"},
    {"PUT", "/PSIA/Custom/Event/triggers/Sensor-0",
     "<EventTrigger><id>Sensor-0</id><intervalBetweenEvents>9</intervalBetweenEvents><EventTriggerNotificationList>"
     "<EventTriggerNotification><id>FTP-1</id><notificationMethod>FTP</notificationMethod></EventTriggerNotification>"
     "</EventTriggerNotificationList></EventTrigger>",
     "select IgnoreInterval from Event", "9", 0, true},
    {"PUT", "/PSIA/Custom/Event/notification/mailing/Mail-1",
     "<MailingNotification><id>Mail-1</id><hostName>sent.example</hostName></MailingNotification>",
     "select Alias, Address from SMTPServer", "Mail-1|sent.example", 0, true},
};

class FaultsTest : public FaultTest {
 protected:
  /// Sends the request, to which the daemons' replies wait already, and leaves the messages it sent in
  /// `sent_`.
  std::string serve(const Case& request) {
    for (int i = 0; i < request.messages; ++i)
      EXPECT_TRUE(camera::send_reply({.type = service_pid}));
    std::string answer = call({.method = request.method, .uri = request.uri, .body = request.body});
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
      plan_fault(kind, skip, fail);
      const std::string answer = serve(request);
      plan->kind = kNoFault;
      if (plan->fail == fail) return skip;  // the request has no more of them
      SCOPED_TRACE(std::string(request.method) + " " + request.uri + ", kind " + std::to_string(kind) +
                   ", operation " + std::to_string(skip));
      const std::string after = rows(request.watched);
      if (request.stored == nullptr) {
        EXPECT_EQ(after, before);
        EXPECT_TRUE(answer == unauthorized() || (answer.empty() && kind == kMemory) ||
                    answer.find("\r\n\r\n<?xml") != std::string::npos)
            << answer;
      } else {
        // No memory for the answer itself: there is none.
        const bool none = answer.empty() && kind == kMemory;
        const bool ok = answer == status(1, request.uri);
        EXPECT_TRUE(ok || none || answer == status(3, request.uri) || answer == unauthorized() ||
                    answer == status(3, request.uri) + status(1, request.uri))  // of a list of users
            << answer;
        EXPECT_TRUE(after == request.stored || (after == before && (!ok || request.any_ok)))
            << after << " from " << before;
        EXPECT_TRUE(sent_ == 0 || after == request.stored);
      }
      EXPECT_EQ(rows("pragma integrity_check"), "ok");
      EXPECT_EQ(camera::restore_factory_rows(), "");
      EXPECT_EQ(serve(request), request.stored == nullptr ? good_ : status(1, request.uri));
      EXPECT_EQ(rows(request.watched), request.stored == nullptr ? before : request.stored);
      if (HasFailure()) return 0;
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
#if !defined(__SANITIZE_ADDRESS__)  // which needs the allocations for itself
    tried += try_each(request, kMemory, 1);
#endif
    // Seven attempts to lock fail: one statement gives up.
    for (const auto& [kind, fail] : {std::pair{kLock, 7}, {kWrite, 1}, {kSync, 1}})
      tried += try_each(request, kind, fail);
    if (HasFailure()) return;
  }
  EXPECT_GT(tried, 100);
}

TEST_F(FaultsTest, AKilledServiceLeavesTheDatabaseWhole) {
  std::string list;
  for (const char* name : {"operator", "viewer", "guest"})
    list += "<User><userName>" + std::string(name) + "</userName><password>sent</password></User>";
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
  std::deque<fastcgi::Connection> connections;
  const auto uri = [](int i) {
    return "/PSIA/" + std::string(static_cast<std::size_t>(i) * 100, 'x') + std::to_string(i);
  };
  for (int i = 0; i < 64; ++i)
    connections.push_back(begin({.uri = uri(i), .user = i % 8 == 0 ? "admin:wrong" : "admin:admin"}));
  for (int i = 0; i < 64; ++i) {
    EXPECT_EQ(connections.front().receive().out, i % 8 == 0 ? unauthorized() : status(4, uri(i)));
    connections.pop_front();
  }
}

}  // namespace
}  // namespace psia_tests
