// Requests that try to hold the camera up: documents made to grow, bodies that do not come, lists that send
// messages without end. Each costs a known time and memory, and a stop ends it.
#include <iconv.h>
#include <sys/msg.h>
#include <sys/syscall.h>

#include <chrono>
#include <csignal>
#include <regex>

#include "tests/support/fault_test.h"

namespace psia_tests {
namespace {

using std::chrono::steady_clock;

constexpr const char* kInfo = "/PSIA/System/deviceInfo";
constexpr const char* kChannels = "/PSIA/Streaming/channels/1";

/// The ASCII text in another encoding. UTF-7 can be written in many ways; here each E is.
std::string encoded(const std::string& encoding, std::string text) {
  if (encoding == "UTF-7") return std::regex_replace(text, std::regex("E"), "+AEU-");
  std::string result(text.size(), '\0');
  iconv_t converter = iconv_open(encoding.c_str(), "ASCII");
  char* from = text.data();
  char* to = result.data();
  std::size_t left = text.size();
  std::size_t room = result.size();
  EXPECT_EQ(iconv(converter, &from, &left, &to, &room), 0U) << encoding;
  iconv_close(converter);
  return result;
}

/// `count` pieces, each a different name between `before` and `after`.
std::string names(int count, const std::string& before, const std::string& after) {
  std::string text;
  for (int i = 0; i < count; ++i)
    text += before + "n" + std::to_string(i) + after;
  return text;
}

class DocumentLimitsTest : public FaultTest {};

TEST_F(DocumentLimitsTest, ADeclaredEntityIsRefusedBeforeItIsExpanded) {
  std::string nested = "<!DOCTYPE DeviceInfo [<!ENTITY % a0 '" + repeated(50, "<!--x-->") + "'>";
  for (int i = 1; i < 7; ++i) {
    nested += "<!ENTITY % a" + std::to_string(i) + " '" +
              repeated(20, "&#37;a" + std::to_string(i - 1) + ";") + "'>";
  }
  nested += repeated(600, "%a1;") + "%a6;]><DeviceInfo/>";
  const auto declaring = [](const std::string& declaration, const std::string& encoding) {
    return "<?xml version='1.0' encoding='" + encoding + "'?><!DOCTYPE DeviceInfo [" + declaration +
           "]><DeviceInfo><deviceName>changed</deviceName></DeviceInfo>";
  };
  std::vector<std::string> bodies = {nested};
  for (const char* declaration : {"<!ENTITY a 'b'>", "<!ENTITY % a 'b'>", "<!ENTITY a SYSTEM 'b'>",
                                  "<!NOTATION n SYSTEM 'n'><!ENTITY a SYSTEM 'b' NDATA n>"}) {
    for (const char* encoding : {"UTF-8", "ISO-8859-1", "UTF-7", "IBM037", "SHIFT_JIS"})
      bodies.push_back(encoded(encoding, declaring(declaration, encoding)));
  }
  const std::size_t idle = memory("status", "VmHWM:");
  for (const std::string& body : bodies)
    EXPECT_EQ(put(kInfo, body), status(3, kInfo)) << body.substr(0, 120);
  EXPECT_NE(rows("select DDNSHostname from Network"), "changed");
  EXPECT_LT(memory("status", "VmHWM:"), idle + 6000000);
  for (const char* encoding : {"UTF-7", "IBM037"}) {  // without the declaration they are read
    run_sql("update Network set DDNSHostname=''");
    EXPECT_EQ(put(kInfo, encoded(encoding, declaring("<!ELEMENT a ANY>", encoding))), status(1, kInfo));
    EXPECT_EQ(rows("select DDNSHostname from Network"), "changed");
  }
}

TEST_F(DocumentLimitsTest, WhatADocumentCostsIsBounded) {
  const auto info = [](const std::string& inside) { return element("DeviceInfo", inside); };
  const std::string own_defaults =
      "<!DOCTYPE DeviceInfo [<!ATTLIST a " + names(1200, "", " CDATA \"\" ") + ">]>";
  const std::vector<std::tuple<const char*, int, std::string>> documents = {
      {"elements to the end", 3, info(repeated(262000, "<a/>"))},
      {"everything", 1,
       "<?xml version='1.0' encoding='US-ASCII'?>" +
           info(names(6000, "\n  <", "/>") + element("a", std::string(850000, 'x')) + "<a " +
                names(5900, " ", "='&amp;'") + "/>")},
      {"attributes of one element", 3, "<DeviceInfo " + names(100000, " ", "=''") + "/>"},
      {"attributes of one element in EBCDIC", 3,
       encoded("IBM037",
               "<?xml version='1.0' encoding='IBM037'?><DeviceInfo " + names(60000, " ", "=''") + "/>")},
      {"name spaces", 1,
       "<DeviceInfo" + names(5900, " xmlns:", "='a'") + ">" + repeated(9000, "<none:a/>") + "</DeviceInfo>"},
      {"defaults of its own", 3, own_defaults + info(repeated(3000, "<a/>"))},
      {"defaults behind an error", 3,
       "<?xml version='1.0' bad?>" + own_defaults + info(repeated(3000, "<a/>"))},
      {"alternatives", 3,
       "<!DOCTYPE DeviceInfo [<!ATTLIST a b (" + names(140000, "", "|") + "z) #IMPLIED>]><DeviceInfo/>"},
  };
  EXPECT_EQ(put(kInfo, info(std::string(1000000, ' '))), status(1, kInfo));
  [[maybe_unused]] const std::size_t idle = memory("smaps_rollup", "Private_Dirty:");
  for (const auto& [name, code, body] : documents) {
    write_file("/proc/" + std::to_string(service_pid) + "/clear_refs", "5");  // the peak begins anew
    [[maybe_unused]] const std::size_t before = memory("status", "VmRSS:");
    const auto start = steady_clock::now();
    EXPECT_EQ(put(kInfo, body), status(code, kInfo)) << name;
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(8)) << name;
#if !defined(__SANITIZE_ADDRESS__)
    EXPECT_LT(memory("status", "VmHWM:"), before + 6000000) << name;
    EXPECT_LT(memory("smaps_rollup", "Private_Dirty:"), idle + 300000) << name;
#endif
  }
}

TEST_F(DocumentLimitsTest, EachBoundIsWhereItIsSaidToBe) {
  // Of each piece the most that a document may have; blanks are counted with all around them.
  for (const auto& [begin, most, piece] : std::vector<std::tuple<std::string, std::size_t, const char*>>{
           {"", 9999, "<a/>"},  // with the root
           {"", 6000, "="},
           {"", 6000, "<?a?>"},
           {"", 2000, "<?a?><a b='' xmlns='c'/>"},
           {"<!DOCTYPE DeviceInfo SYSTEM 'x'>", 6000, "&a;"},
           {"<?xml version='1.0' encoding='us-ascii'?>", 1048576, " "},
           {"<?xml version='1.0' encoding='ASCII'?>", 1048576, " "},
           {"<?xml version='1.0' encoding='iso-8859-1'?>", 524288, " "},
           {"<?xml version='1.0' encoding='SHIFT_JIS'?>", 32768, " "},
           {"<!DOCTYPE DeviceInfo [<!ELEMENT a ANY>]>", 32768, " "}}) {
    const std::size_t around = *piece == ' ' ? begin.size() + element("DeviceInfo", "").size() : 0;
    const auto document = [&head = begin, &part = piece, around](std::size_t count) {
      return head + element("DeviceInfo", repeated(static_cast<int>(count - around), part));
    };
    EXPECT_EQ(put(kInfo, document(most)), status(1, kInfo)) << begin << piece;
    EXPECT_EQ(put(kInfo, document(most + 1)), status(3, kInfo)) << begin << piece;
  }
}

// The longest document that anybody sends, as a client that writes for people does.
TEST_F(DocumentLimitsTest, AThousandUsersFitIntoOneDocument) {
  run_sql(
      "with recursive n(i) as (select 0 union all select i + 1 from n limit 1000) "
      "insert into User select 'u' || i, 'old', 2 from n");
  const std::string user =
      "  <User version=\"1.0\">\n    <id>u#</id>\n    <userName>u#</userName>\n"
      "    <password>new#==</password>\n    <userLevel>2</userLevel>\n  </User>\n";
  std::string list = "<UserList version=\"1.0\" xmlns=\"urn:psialliance-org\">\n";
  for (int i = 0; i < 1000; ++i)
    list += replaced(user, {{"#", std::to_string(i)}});
  list += "</UserList>\n";
  const std::string uri = "/PSIA/Security/AAA/users";
  EXPECT_EQ(call({.method = "PUT", .uri = uri, .body = list}), status(1, uri));
  EXPECT_EQ(rows("select count(*) from User where Password='new' || substr(UserID, 2) || '=='"), "1000");
}

class BodyLimitsTest : public FaultTest {
 protected:
  const std::string body_ = "<DeviceInfo><deviceName>arrived</deviceName></DeviceInfo>";

  /// A request whose body comes but for its last bytes, for which the service waits.
  fastcgi::Connection begin_unfinished(std::size_t missing, const char* uri = kInfo) {
    fastcgi::Request request = to_request({.method = "PUT", .uri = uri, .body = body_});
    request.body.resize(request.body.size() - missing);
    fastcgi::Connection connection("/usr/local/orvid/psia.sock");
    request.finished = false;
    connection.send(request);
    EXPECT_TRUE(eventually([this] {  // in the system call
      return read_file("/proc/" + std::to_string(service_pid) + "/syscall")
                 .rfind(std::to_string(SYS_read) + " ", 0) == 0;
    }));
    return connection;
  }
  static std::string stored() { return rows("select DDNSHostname from Network"); }
};

TEST_F(BodyLimitsTest, AStopEndsARequestThatWaitsForItsBody) {
  for (const int signal : {SIGTERM, SIGUSR1}) {
    plan->speed = 5;
    const fastcgi::Connection connection = begin_unfinished(1);
    usleep(400000);  // longer than the patience after a stop, which counts from the stop
    const auto start = steady_clock::now();
    for (int i = 0; i < 3; ++i) {
      kill(service_pid, signal);
      usleep(60000);
    }
    EXPECT_EQ(connection.receive().out, status(3, kInfo));
    EXPECT_GT(steady_clock::now() - start, std::chrono::milliseconds(250));
    EXPECT_EQ(wait_for_exit(), 0);
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_NE(stored(), "arrived");
    start_with_plan();
  }
}

TEST_F(BodyLimitsTest, NoSignalCutsABodyThatArrives) {
  const fastcgi::Connection connection = begin_unfinished(8);
  for (std::size_t left = 8; left > 0; --left) {
    kill(service_pid, SIGALRM);
    kill(service_pid, SIGTERM);
    usleep(400000);
    connection.send_more(body_.substr(body_.size() - left, 1));
  }
  EXPECT_EQ(connection.receive().out, status(1, kInfo));
  EXPECT_EQ(wait_for_exit(), 0);
  EXPECT_EQ(stored(), "arrived");
}

TEST_F(BodyLimitsTest, SilenceOf30SecondsEndsABodyAndABytePer20SecondsDoesNot) {
  plan->speed = 20;
  {
    const fastcgi::Connection slow = begin_unfinished(3);
    for (std::size_t left = 3; left > 0; --left) {
      usleep(1000000);
      slow.send_more(body_.substr(body_.size() - left, 1));
    }
    EXPECT_EQ(slow.receive().out, status(1, kInfo));
  }
  EXPECT_EQ(stored(), "arrived");
  run_sql("update Network set DDNSHostname='before'");
  const auto start = steady_clock::now();
  EXPECT_EQ(begin_unfinished(1).receive().out, status(3, kInfo));
  EXPECT_GT(steady_clock::now() - start, std::chrono::milliseconds(1300));
  EXPECT_EQ(stored(), "before");
  // A body that goes into a file ends where it is, like any that is shorter than announced.
  const char* upload = "/PSIA/System/configurationData";
  EXPECT_EQ(begin_unfinished(1, upload).receive().out, status(1, upload));
  EXPECT_EQ(read_file(std::string(camera::kExchangeDirectory) + "/psia_config.dat"), "");
  EXPECT_EQ(put(kInfo, body_), status(1, kInfo));  // and the next one comes as if nothing had been
  EXPECT_EQ(stored(), "arrived");
}

TEST_F(BodyLimitsTest, TheTimerOfABodyDisturbsNoLaterRequest) {
  plan->speed = 100;
  EXPECT_EQ(put(kInfo, body_), status(1, kInfo));
  const fastcgi::Connection later("/usr/local/orvid/psia.sock");  // accepted, and its first byte awaited
  usleep(600000);
  later.send(to_request({.uri = "/PSIA/x"}));
  EXPECT_EQ(later.receive().out, status(4, "/PSIA/x"));
}

TEST_F(FaultTest, AStopJustBeforeASystemCallThatBlocksIsNotLost) {
  plan_fault(kStop, 0, 1);
  EXPECT_EQ(get("/PSIA/x"), status(4, "/PSIA/x"));  // the next accept is the one
  EXPECT_EQ(wait_for_exit(), 0);

  start_with_plan();
  camera::Message filler{.type = 1};
  while (msgsnd(msgget(camera::kRequestQueueKey, 0), &filler, sizeof filler.body, IPC_NOWAIT) == 0) {
  }
  plan_fault(kStop, 0, 1);
  EXPECT_EQ(begin({.method = "PUT", .uri = "/PSIA/System/reboot"}).receive().out,
            status(2, "/PSIA/System/reboot"));
  EXPECT_EQ(wait_for_exit(), 0);
}

TEST_F(FaultTest, TheServiceWaitsAsLongAsItIsSaidTo) {
  plan->speed = 200;
  const auto slept_in = [this](const std::string& method, const std::string& uri, const std::string& answer) {
    plan->slept = 0;
    EXPECT_EQ(call({.method = method, .uri = uri}), answer) << uri;
    return plan->slept.load();
  };
  plan_fault(kLock, 0, 7);
  EXPECT_EQ(slept_in("GET", "/PSIA/x", unauthorized()), 50 + 100 + 150 + 200 + 250 + 300);
  for (const auto& [uri, milliseconds] :
       {std::pair{"/PSIA/System/reboot", 5100}, {"/PSIA/System/factoryReset?mode=full", 180100}})
    EXPECT_EQ(slept_in("PUT", uri, status(2, uri)), milliseconds);
}

class MessageLimitsTest : public FaultTest {
 protected:
  static std::string channel(int videos) {
    std::string body;
    for (int i = 1; i <= videos; ++i)
      body += xml("Video(constantBitRate=" + std::to_string(i) + ")");
    return element("StreamingChannel", body);
  }
  static std::string bit_rate() { return rows("select Bitrate from VideoEncoder where VideoEncoderID=0"); }
};

TEST_F(MessageLimitsTest, ARequestSends32AndTheNextFailsItsUpdate) {
  for (const int videos : {40, 32}) {  // each request anew
    const fastcgi::Connection connection =
        begin({.method = "PUT", .uri = kChannels, .body = channel(videos)});
    for (int i = 0; i < 32; ++i)
      EXPECT_TRUE(camera::send_reply(camera::reply_to(expect_message(), 0)));
    EXPECT_EQ(connection.receive().out, status(videos > 32 ? 3 : 1, kChannels));
    expect_no_message();
    EXPECT_EQ(bit_rate(), "32");
  }
}

TEST_F(MessageLimitsTest, AStopEndsTheListBetweenTwoMessages) {
  const fastcgi::Connection connection = begin({.method = "PUT", .uri = kChannels, .body = channel(40)});
  EXPECT_TRUE(camera::send_reply(camera::reply_to(expect_message(), 0)));
  const camera::Message second = expect_message();
  kill(service_pid, SIGTERM);
  EXPECT_TRUE(camera::send_reply(camera::reply_to(second, 0)));
  EXPECT_EQ(connection.receive().out, status(3, kChannels));
  EXPECT_EQ(wait_for_exit(), 0);
  EXPECT_EQ(bit_rate(), "2");
  expect_no_message();
}

}  // namespace
}  // namespace psia_tests
