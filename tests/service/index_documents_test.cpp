// The documents by which clients explore the service, byte for byte.
#include <array>
#include <sstream>

#include "tests/support/service_fixture.h"

namespace psia_tests {
namespace {

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>";
const std::string kAttributes =
    " version=\"1.0\" xmlns=\"urn:psialliance-org\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xsi:schemaLocation=\"urn:psialliance-org http://www.psialliance.org/XMLSchemas/service.xsd\">";

/// The entry of a service with those of its children.
std::string service(const std::string& name, const std::string& children = "") {
  return "<Resource version=\"1.0\"><name>" + name + "</name><version>1.0</version><type>service</type>" +
         (children.empty() ? "" : "<ResourceList version=\"1.0\">" + children + "</ResourceList>") +
         "</Resource>";
}

/// Entries of resources from their names.
std::string resources(const std::string& names) {
  std::string text;
  std::istringstream rest(names);
  for (std::string name; rest >> name;)
    text += "<Resource version=\"1.0\"><name>" + name +
            "</name><version>1.0</version><type>resource</type></Resource>";
  return text;
}

std::string list(const std::string& line_break, const std::string& entries) {
  return kDeclaration + line_break + "<ResourceList" + kAttributes + entries + "</ResourceList>";
}

std::string description(const std::string& line_break) {
  const std::string unsupported =
      "<QueryStringParameterList /><inboundData>none</inboundData><returnResult>none</returnResult>"
      "<function>not supported</function><notes>not supported</notes>";
  return kDeclaration + line_break + "<ResourceDescription" + kAttributes +
         "<name>index</name><version>1.0</version><type>resource</type><get><QueryStringParameterList />"
         "<inboundData>none</inboundData><returnResult>ResourceList</returnResult>"
         "<function>enumerate 1st level children</function><notes>non-recursive</notes></get><put>" +
         unsupported + "</put><post>" + unsupported + "</post><delete>" + unsupported +
         "</delete></ResourceDescription>";
}

class IndexDocumentsTest : public RunningServiceTest {};

TEST_F(IndexDocumentsTest, ListsAndDescriptions) {
  const std::string system =
      "index description reboot updateFirmware configurationData factoryReset deviceInfo status ";
  const std::string network = resources("index description interfaces");
  const std::string video = resources("index description inputs");
  const std::string users = resources("index description users");
  const std::string streaming = resources("index description status channels");
  for (const auto& [level, line_break, entries] : std::vector<std::array<std::string, 3>>{
           {"", "",
            resources("index indexr description") + service("System") + service("Security") +
                service("Streaming")},
           {"/System", "\r\n",
            resources(system + "time localTime timeZone ntpServers ntpServers/ID") + service("Network") +
                service("Audio") + service("Video")},
           {"/System/Network", "", network},
           {"/System/Audio", "\r\n", resources("index description channels")},
           {"/Security", "\r\n", resources("index description")},
           {"/Security/AAA", "\r\n", users},
           {"/Streaming", "\r\n", streaming}}) {
    EXPECT_EQ(get("/PSIA" + level + "/index"), document(list(line_break, entries))) << level;
    EXPECT_EQ(get("/PSIA" + level + "/description"), document(description(line_break))) << level;
  }
  EXPECT_EQ(get("/PSIA/System/Video/index"),
            document(kDeclaration + "\r\n<ResourceList version=\"1.0\" xmlns=\"urn:psialliance-org\">" +
                     video + "</ResourceList>"));
  EXPECT_EQ(get("/PSIA/System/Video/description"), document(description("\r\n")));
  EXPECT_EQ(
      get("/PSIA/indexr"),
      document(list("", resources("index indexr description") +
                            service("System", resources(system) + service("Network", network) +
                                                  service("Video", video)) +
                            service("Security", resources("index description") + service("AAA", users)) +
                            service("Streaming", streaming))));
}

TEST_F(IndexDocumentsTest, TheEventLevelsGoToStandardOutput) {
  EXPECT_EQ(get("/PSIA/Custom/Event/index"), "");
  EXPECT_EQ(get("/PSIA/Custom/Event/description"), "");
  EXPECT_EQ(printed(),
            printed_document(list("", resources("index description triggers schedule notification"))) +
                printed_document(description("")));
}

}  // namespace
}  // namespace psia_tests
