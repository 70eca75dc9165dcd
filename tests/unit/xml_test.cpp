// Documents that the versions of libxml2 treat differently, and that the service must not.
#include "frame/xml.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace psia {
namespace {

/// The text of the root element; "refused" without a document.
std::string root_text(const std::string& document) {
  prepare_xml();
  const XmlDocument parsed = XmlDocument::parse(document.c_str());
  return parsed ? parsed.root().text() : "refused";
}

TEST(XmlDocument, IsTheSameWithEveryVersionOfLibxml2) {
  const std::string mark = "\xEF\xBB\xBF";  // byte order mark of UTF-8
  const std::string latin = "<?xml version='1.0' encoding='ISO-8859-1'?><a>\xE9</a>";
  const std::string ascii = "<?xml version='1.0' encoding='US-ASCII'?><a>e</a>";
  for (const auto& [document, text] : std::vector<std::array<std::string, 2>>{
           {"<a><![CDATA[]]></a>", ""},
           {mark + "<a>\xC3\xA9</a>", "\xC3\xA9"},
           {mark + mark + "<a/>", "refused"},
           {latin, "\xC3\xA9"},
           {mark + latin, "\xC3\xA9"},
           {ascii, "e"},
           {ascii + "<!--\xE9-->", "refused"},
           {"<?xml version='1.0' encoding='UTF-8'standalone='yes'?><a/>", "refused"},
           {"<b:a>c</b:a>", "c"},
           {"<b:a/>behind the root", "refused"},
           {"<!DOCTYPE a SYSTEM 'elsewhere' [%b;]><a>c</a>", "c"},
           {"<!DOCTYPE a [%b;]><a/>", "refused"}}) {
    EXPECT_EQ(root_text(document), text) << document;
  }
}

}  // namespace
}  // namespace psia
