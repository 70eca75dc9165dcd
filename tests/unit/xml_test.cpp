// Documents that the versions of libxml2 treat differently, and that the service must not.
#include "core/xml.h"

#include <gtest/gtest.h>

#include <string>

namespace psia {
namespace {

/// The text of the root element; "refused" without a document.
std::string root_text(const std::string& document) {
  prepare_xml();
  const XmlDocument parsed = XmlDocument::parse(document.c_str());
  return parsed ? parsed.root().text() : "refused";
}

const std::string kByteOrderMark = "\xEF\xBB\xBF";
const std::string kLatin = "<?xml version='1.0' encoding='ISO-8859-1'?><a>\xE9</a>";
const std::string kAscii = "<?xml version='1.0' encoding='US-ASCII'?><a>e</a>";

TEST(XmlDocument, HasNoTextInAnEmptySection) {
  EXPECT_EQ(root_text("<a><![CDATA[]]></a>"), "");
}

TEST(XmlDocument, MayBeginWithOneByteOrderMark) {
  EXPECT_EQ(root_text(kByteOrderMark + "<a>\xC3\xA9</a>"), "\xC3\xA9");
  EXPECT_EQ(root_text(kByteOrderMark + kByteOrderMark + "<a/>"), "refused");
}

TEST(XmlDocument, IsConvertedFromItsEncoding) {
  EXPECT_EQ(root_text(kLatin), "\xC3\xA9");
  EXPECT_EQ(root_text(kByteOrderMark + kLatin), "\xC3\xA9");
  EXPECT_EQ(root_text(kAscii), "e");
  EXPECT_EQ(root_text(kAscii + "<!--\xE9-->"), "refused");
}

TEST(XmlDocument, NeedsASpaceBetweenTheWordsOfItsDeclaration) {
  EXPECT_EQ(root_text("<?xml version='1.0' encoding='UTF-8'standalone='yes'?><a/>"), "refused");
}

TEST(XmlDocument, MayHaveAPrefixThatIsNotDeclared) {
  EXPECT_EQ(root_text("<b:a>c</b:a>"), "c");
  EXPECT_EQ(root_text("<b:a/>after the root"), "refused");
}

TEST(XmlDocument, MayUseAnUnknownParameterEntityOnlyWithAnExternalSubset) {
  EXPECT_EQ(root_text("<!DOCTYPE a SYSTEM 'elsewhere' [%b;]><a>c</a>"), "c");
  EXPECT_EQ(root_text("<!DOCTYPE a [%b;]><a/>"), "refused");
}

}  // namespace
}  // namespace psia
