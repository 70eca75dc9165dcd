// The pure parts of core/: numbers, credentials, documents.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "core/access_control.h"
#include "core/numbers.h"
#include "core/xml.h"

namespace psia {
namespace {

TEST(Numbers, EndAtTheFirstOtherCharacterAndSaturateAt32Bits) {
  EXPECT_EQ(to_int32("+010abc"), 10);
  EXPECT_EQ(to_int32("-2147483649"), INT32_MIN);
  EXPECT_EQ(to_int32("99999999999999999999999"), INT32_MAX);
}

// Credentials that a user of the camera may have are tested with the service.

void expect_credentials(const std::string& header, const std::string& user, const std::string& password) {
  const Credentials credentials = decode_credentials(header.c_str());
  EXPECT_EQ(credentials.user.c_str(), user);
  EXPECT_EQ(credentials.password.c_str(), password);
}

TEST(Credentials, HoldAnyByteButEndAtAZero) {
  expect_credentials("Basic x", "", "");                        // no whole byte
  expect_credentials("Basic /+86", "\xff\xef", "");             // FF EF ':'
  expect_credentials("Basic YWRtaW4AeDpwdw==", "admin", "pw");  // admin\0x:pw
}

// Documents that the versions of libxml2 treat differently, and that the service must not.

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
