// Conversions of texts: safe for a terminal, to JSON, XML indented, URLs decoded.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace camera {

/// The text as one line that is safe on a terminal. Clients may store anything, escape sequences included,
/// and the terminal shows it. These become question marks: control characters (C0 without the tab, DEL, C1 in
/// both encodings), characters that change the direction of writing or break lines, and bytes that are not
/// UTF-8. The result is valid UTF-8.
[[nodiscard]] std::string harmless(std::string_view text);

/// The text as a JSON string with its quotes. Line feeds are kept; harmless() replaces the rest.
[[nodiscard]] std::string json_text(std::string_view text);

/// The texts as a JSON array.
[[nodiscard]] std::string json_list(const std::vector<std::string>& texts);

/// The lines of an XML document, indented by two spaces for each level; an element that holds only text is on
/// one line. A text that is not XML is split into its lines.
[[nodiscard]] std::vector<std::string> indent_xml(std::string_view document);

/// The text of a URL's query with its escapes (+ and %XX) resolved.
[[nodiscard]] std::string url_decoded(std::string_view text);

/// The lines of a text, without their ends "\n" and "\r\n". A line feed at the end adds no empty line.
[[nodiscard]] std::vector<std::string> split_lines(std::string_view text);

}  // namespace camera
