// From start to stop: what the service waits for, what it does without, how it is told to end.
#include <sched.h>
#include <sqlite3.h>
#include <sys/msg.h>
#include <sys/syscall.h>

#include <chrono>
#include <csignal>
#include <filesystem>

#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

const std::string kAudio = "/PSIA/System/Audio/channels/1";
const Call kSwitchOff{.method = "PUT", .uri = kAudio, .body = "<AudioChannel/>"};

class LifecycleTest : public ServiceTest {
 protected:
  static void remove_queue(int key) { ASSERT_EQ(msgctl(msgget(key, 0), IPC_RMID, nullptr), 0); }

  [[nodiscard]] bool service_blocked_in(long system_call) const {
    const std::string state = read_file("/proc/" + std::to_string(service_pid) + "/syscall");
    return state.substr(0, state.find(' ')) == std::to_string(system_call);
  }

  void start_and_ask() {
    start_service();
    EXPECT_EQ(get("/PSIA/x"), status(4, "/PSIA/x"));
  }

  /// As a daemon does that holds a transaction open; close it to let go.
  static sqlite3* lock_database() {
    sqlite3* daemon = nullptr;
    EXPECT_EQ(sqlite3_open(camera::kDatabase, &daemon), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(daemon, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);
    return daemon;
  }

  /// The answer when a message could not be sent.
  static void expect_busy(const fastcgi::Answer& answer) {
    EXPECT_TRUE(same(answer.out, status(2, kAudio)));
    EXPECT_TRUE(answer.errors.starts_with("Send Message using Message Queue 1 Failed\n")) << answer.errors;
  }
};

TEST_F(LifecycleTest, WithoutADatabaseItSaysSoAndEndsWith255) {
  std::filesystem::remove(camera::kDatabase);
  std::filesystem::create_directory(camera::kDatabase);
  start_service();
  EXPECT_EQ(wait_for_exit(), 255);
  EXPECT_EQ(reported(), "PSIA: DB Open Failed\n");
  EXPECT_EQ(printed(), "");
}

TEST_F(LifecycleTest, WaitsForBothQueuesAndCanBeStoppedMeanwhile) {
  for (const auto& [signal, key] : {std::pair{SIGTERM, 1111}, {SIGUSR1, 2222}}) {
    ASSERT_EQ(camera::reset_queues(), "");
    remove_queue(key);
    start_service();
    EXPECT_TRUE(eventually([this] { return service_blocked_in(SYS_clock_nanosleep); }));
    EXPECT_EQ(stop_service(signal), 0) << key;
  }
  ASSERT_EQ(unshare(CLONE_NEWIPC), 0);  // where the first queue gets the number 0
  start_service();
  const fastcgi::Connection early = begin({.uri = "/PSIA/x"});
  wait_until_idle();
  ASSERT_GE(msgget(1111, 0666 | IPC_CREAT), 0);
  ASSERT_GE(msgget(2222, 0666 | IPC_CREAT), 0);
  EXPECT_EQ(early.receive().out, status(4, "/PSIA/x"));
  EXPECT_EQ(effect(kSwitchOff), "Audio Enable=0; message 3; status 1");
}

TEST_F(LifecycleTest, MessagesLeftInTheQueuesAreDiscardedAtStart) {
  camera::Message stale{.type = 77};
  ASSERT_TRUE(camera::send_reply(stale));
  ASSERT_EQ(msgsnd(msgget(1111, 0666), &stale, sizeof stale.body, 0), 0);
  ASSERT_EQ(msgsnd(msgget(1111, 0666), &stale, 1, 0), 0);
  start_and_ask();
  expect_no_message();
  EXPECT_EQ(msgrcv(msgget(2222, 0666), &stale, sizeof stale.body, 0, IPC_NOWAIT), -1);
}

TEST_F(LifecycleTest, StopsCleanlyWhileBusy) {
  for (const int signal : {SIGTERM, SIGUSR1}) {
    start_service();
    const fastcgi::Connection busy = begin(kSwitchOff);
    const camera::Message message = expect_message();
    kill(service_pid, signal);
    kill(service_pid, signal);
    ASSERT_TRUE(camera::send_reply(camera::reply_to(message, 2)));
    EXPECT_EQ(busy.receive().out, status(3, kAudio));  // the request at hand is finished
    EXPECT_EQ(wait_for_exit(), 0);
  }
}

TEST_F(LifecycleTest, AFullQueueHoldsTheServiceUpUntilThereIsRoomOrItIsStoppedOrTheQueueIsGone) {
  start_and_ask();
  const auto begin_at_full_queue = [this] {
    const camera::Message filler{.type = 1};
    while (msgsnd(msgget(1111, 0666), &filler, sizeof filler.body, IPC_NOWAIT) == 0) {
    }
    fastcgi::Connection connection = begin(kSwitchOff);
    EXPECT_TRUE(eventually([this] { return service_blocked_in(SYS_msgsnd); }));
    return connection;
  };
  const fastcgi::Connection first = begin_at_full_queue();
  while (command_of(expect_message()) != 3) {
  }
  ASSERT_TRUE(camera::send_reply({.type = service_pid}));
  EXPECT_EQ(first.receive().out, status(1, kAudio));
  const fastcgi::Connection second = begin_at_full_queue();
  EXPECT_EQ(stop_service(SIGTERM), 0);
  expect_busy(second.receive());
  start_and_ask();
  remove_queue(1111);
  expect_busy(exchange(kSwitchOff));
}

TEST_F(LifecycleTest, RepliesThatAreLateOrForeign) {
  start_and_ask();
  ASSERT_TRUE(camera::send_reply({.type = service_pid + 1}));
  EXPECT_EQ(call(kSwitchOff), status(2, kAudio));  // only its own reply counts
  // A late reply is taken for the reply to the next message: there is nothing in it to tell it by.
  ASSERT_TRUE(camera::send_reply(camera::reply_to(expect_message(), 2)));
  EXPECT_EQ(effect(kSwitchOff), "message 3; status 3");
}

TEST_F(LifecycleTest, ALockedDatabaseIsWaitedForButNotForever) {
  start_and_ask();
  sqlite3* const daemon = lock_database();
  EXPECT_EQ(get("/PSIA/x"), unauthorized());  // the user table cannot be read
  const fastcgi::Connection patient = begin({.uri = "/PSIA/x"});
  ASSERT_TRUE(eventually([this] { return service_blocked_in(SYS_clock_nanosleep); }));
  ASSERT_EQ(sqlite3_exec(daemon, "commit", nullptr, nullptr, nullptr), SQLITE_OK);
  EXPECT_EQ(patient.receive().out, status(4, "/PSIA/x"));
  EXPECT_EQ(sqlite3_close(daemon), SQLITE_OK);
}

TEST_F(LifecycleTest, AStopEndsTheWaitsOfAListForALock) {
  start_and_ask();
  const std::string uri = "/PSIA/Security/AAA/users";
  const std::string list = element("UserList", repeated(20, xml("User(userName=viewer password=sent)")));
  std::optional<fastcgi::Connection> connection =
      begin({.method = "PUT",
             .uri = uri,
             .body = list,
             .variables = {{"CONTENT_LENGTH", std::to_string(list.size() + 1)}},
             .finished = false});
  ASSERT_TRUE(eventually([this] { return service_blocked_in(SYS_read); }));  // with the user let in
  sqlite3* const daemon = lock_database();
  connection->send_more("\n");
  ASSERT_TRUE(eventually([this] { return service_blocked_in(SYS_clock_nanosleep); }));
  const auto start = std::chrono::steady_clock::now();
  kill(service_pid, SIGTERM);
  EXPECT_EQ(connection->receive().out, repeated(20, status(3, uri)) + status(1, uri));
  connection.reset();
  EXPECT_EQ(wait_for_exit(), 0);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  EXPECT_GT(seconds.count(), 0.5);  // the first wait is whole
  EXPECT_LT(seconds.count(), 2.5);
  EXPECT_EQ(sqlite3_close(daemon), SQLITE_OK);
}

TEST_F(LifecycleTest, ClosedStandardDescriptorsStayOutOfTheWay) {
  start_service({.close_output = true});
  EXPECT_EQ(get("/PSIA/Custom/Event/index"), "");
  EXPECT_EQ(effect(kSwitchOff), "Audio Enable=0; message 3; status 1");
  EXPECT_EQ(rows("pragma integrity_check"), "ok");
}

TEST_F(LifecycleTest, AKeptConnectionCarriesSeveralRequests) {
  start_service();
  const Call kept{.uri = "/PSIA/x", .keep = true};
  const fastcgi::Connection connection = begin(kept);
  EXPECT_EQ(connection.receive().out, status(4, "/PSIA/x"));
  connection.send(to_request(kept));
  EXPECT_EQ(connection.receive().out, status(4, "/PSIA/x"));
  wait_until_idle();
  EXPECT_EQ(stop_service(SIGTERM), 0);
}

TEST_F(LifecycleTest, AsAPlainCgiProgramItServesOneRequest) {
  const auto served = [this](const std::string& uri, const std::string& user) {
    start_service({.environment = to_request({.uri = uri, .user = user}).variables, .cgi = true});
    EXPECT_EQ(wait_for_exit(), 0);
    return printed();
  };
  EXPECT_EQ(served("/PSIA/x", "admin:admin"), status(4, "/PSIA/x"));
  EXPECT_EQ(served("/PSIA/x", ""), unauthorized());
  // What a FastCGI client never sees reaches the client here.
  EXPECT_NE(served("/PSIA/Custom/Event/description", "admin:admin").find("<ResourceDescription"),
            std::string::npos);
}

TEST_F(LifecycleTest, AThousandMixedRequestsLeaveMemoryAndDescriptorsWhereTheyWere) {
  start_service();
  const Pairs changes = {{kAudio, "<AudioChannel>"},
                         {"/PSIA/System/deviceInfo", "<DeviceInfo><deviceName>'</deviceName></DeviceInfo>"},
                         {"/PSIA/System/configurationData", std::string(5000, 'c')},
                         {"/PSIA/Security/AAA/users/viewer", "<User><password>x</password></User>"},
                         {"/PSIA/Custom/Event/schedule", "<EventSchedule/>"}};
  const auto run = [&](int times) {
    for (int i = 0; i < times; ++i) {
      (void)get("/PSIA/index", "admin:wrong");
      for (const char* uri :
           {"indexr", "nothing", "System/deviceInfo", "System/time", "System/Network/interfaces",
            "Streaming/channels", "Streaming/channels/1/status", "Security/AAA/users", "Custom/Event"})
        (void)get(std::string("/PSIA/") + uri);
      for (const auto& [uri, body] : changes)
        (void)call({.method = "PUT", .uri = uri, .body = body});
    }
  };
  run(10);
  const std::size_t descriptors = open_descriptors();
  [[maybe_unused]] const std::size_t resident = memory("status", "VmRSS:");
  run(65);
  EXPECT_EQ(open_descriptors(), descriptors);
#if !defined(__SANITIZE_ADDRESS__)  // a sanitizer keeps freed memory for a while
  EXPECT_LE(memory("status", "VmRSS:"), resident + 16UL * 4096);
#endif
}

}  // namespace
}  // namespace psia_tests
