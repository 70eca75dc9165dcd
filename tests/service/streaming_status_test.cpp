// Who is watching the streams, as clients are told.
#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

const std::string kOverall = "/PSIA/Streaming/status";
const std::string kMaster = "/PSIA/Streaming/channels/1/status";
const std::string kSlave = "/PSIA/Streaming/channels/Slave-0/status";
const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n";

std::string sessions(const std::string& start_tag, const std::vector<std::string>& addresses) {
  std::string elements;
  for (const std::string& address : addresses) {
    elements += start_tag + "<clientAddress><ipAddress>" + address + "</ipAddress></clientAddress>" +
                "</StreamingSessionStatus>";
  }
  return elements + "</StreamingSessionStatusList>";
}

std::string overall(const std::vector<std::string>& addresses) {
  return document(kDeclaration +
                  R"(<StreamingStatus version="1.0" xmlns="urn:psialliance-org"><totalStreamingSessions>)" +
                  std::to_string(addresses.size()) +
                  R"(</totalStreamingSessions><StreamingSessionStatusList version="1.0">)" +
                  sessions(R"(<StreamingSessionStatus version="1.0">)", addresses) + "</StreamingStatus>");
}

/// The whole answer for one stream, which has header lines of its own.
std::string of_stream(const std::vector<std::string>& addresses) {
  return "Content-Type: application/xml; charset=\"UTF-8\"\n\n" + kDeclaration +
         R"(<StreamingSessionStatusList version="1.0" xmlns="urn:psialliance-org">)" +
         sessions("<StreamingSessionStatus>", addresses);
}

class StreamingStatusTest : public RunningServiceTest {};

TEST_F(StreamingStatusTest, ClientsOfTheStreamChosenByTheLengthOfTheUri) {
  for (const std::string name : {"Slave-0/status", "slave-0/STATUS", "1234567/status"})
    EXPECT_EQ(get("/PSIA/Streaming/channels/" + name), of_stream({"192.168.1.60"})) << name;
  for (const std::string name : {"2/status", "Slave-0//status", "slave/status"})
    EXPECT_EQ(get("/PSIA/Streaming/channels/" + name), of_stream({"192.168.1.50", "192.168.1.51"})) << name;

  run_sql("update ClientList set Address='%%%%d%s<&' where StreamName='Slave-0'");
  EXPECT_EQ(get(kSlave), of_stream({"%%%%d%s<&"}));
  // Percent signs are folded where a document is put together, and where it is sent.
  EXPECT_EQ(get(kOverall), overall({"192.168.1.50", "192.168.1.51", "%d%s<&"}));
  run_sql("update ClientList set StreamName='slave-0'");
  EXPECT_EQ(get(kSlave), status(3, kSlave));
  EXPECT_EQ(get(kMaster), status(3, kMaster));
  run_sql("delete from ClientList");
  EXPECT_EQ(get(kOverall), overall({}));
  run_sql("drop table ClientList");
  EXPECT_EQ(get(kOverall), status(3, kOverall));
}

}  // namespace
}  // namespace psia_tests
