// Texts as they may be shown: on a terminal, in JSON, and XML documents indented.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace camera {

/// One line that a terminal shows without acting on it. Everything a client stores may end up there, escape
/// sequences too: control characters (C0 but the tab, DEL, C1 in either form), the characters that turn the
/// direction of writing or break lines, and bytes that are not UTF-8 each become a question mark. The result
/// is valid UTF-8.
[[nodiscard]] std::string harmless(std::string_view text);

/// The text as a JSON string with its quotes. Line feeds are kept, the rest becomes harmless as above.
[[nodiscard]] std::string json_text(std::string_view text);

/// The texts as a JSON array.
[[nodiscard]] std::string json_list(const std::vector<std::string>& texts);

/// The lines of an XML document, two spaces deeper with each element; an element that holds only text stays
/// on one line. What is not XML comes out as it is, line by line.
[[nodiscard]] std::vector<std::string> indent_xml(std::string_view document);

/// The lines of a text, without the ends "\n" and "\r\n"; nothing for what follows the last line feed when
/// that is empty.
[[nodiscard]] std::vector<std::string> split_lines(std::string_view text);

}  // namespace camera
