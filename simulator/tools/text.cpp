#include "simulator/tools/text.h"

#include <charconv>
#include <cstddef>

namespace camera {
namespace {

constexpr std::size_t kDeepest = 40;  // levels that are indented; a document may have many more

// Size in bytes and code point of the UTF-8 character at the start; size 0 when it is not valid (RFC 3629: no
// overlong forms, no surrogates, nothing above U+10FFFF).
struct Character {
  std::size_t size = 0;
  unsigned int code = 0;
};

Character first_character(std::string_view text) {
  const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned int lead = byte(0);
  if (lead < 0x80) return {1, lead};
  const std::size_t size = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
  if (lead < 0xc2 || lead > 0xf4 || text.size() < size) return {};
  unsigned int code = lead & (0x7fU >> size);
  for (std::size_t i = 1; i < size; i++) {
    if ((byte(i) & 0xc0U) != 0x80) return {};
    code = code << 6U | (byte(i) & 0x3fU);
  }
  const unsigned int least = size == 2 ? 0x80 : size == 3 ? 0x800 : 0x10000;
  if (code < least || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff)) return {};
  return {size, code};
}

bool is_harmless(unsigned int code) {
  const bool control = (code < 0x20 && code != '\t') || (code >= 0x7f && code <= 0x9f);
  const bool direction = code == 0x61c || code == 0x200e || code == 0x200f ||
                         (code >= 0x2028 && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
  return !control && !direction && code != 0xfeff;
}

// The token at the start of XML: a tag, or the text before the next one.
std::string_view first_token(std::string_view xml) {
  const std::size_t end = xml[0] == '<' ? xml.find('>') : xml.find('<');
  if (end == std::string_view::npos) return xml;
  return xml.substr(0, xml[0] == '<' ? end + 1 : end);
}

std::string_view trimmed(std::string_view text) {
  const char* const blanks = " \t\r\n";
  const std::size_t start = text.find_first_not_of(blanks);
  if (start == std::string_view::npos) return "";
  return text.substr(start, text.find_last_not_of(blanks) - start + 1);
}

}  // namespace

std::string harmless(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const Character character = first_character(text);
    const bool keep = character.size > 0 && is_harmless(character.code);
    const std::size_t size = character.size > 0 ? character.size : 1;
    if (keep) {
      shown += text.substr(0, size);
    } else {
      shown += '?';
    }
    text.remove_prefix(size);
  }
  return shown;
}

std::string json_text(std::string_view text) {
  std::string quoted = "\"";
  for (bool more = true; more;) {
    const std::size_t end = text.find('\n');
    more = end != std::string_view::npos;
    for (const char character : harmless(text.substr(0, end))) {
      if (character == '"' || character == '\\') quoted += '\\';
      if (character == '\t') {
        quoted += "\\t";
      } else {
        quoted += character;
      }
    }
    if (more) {
      quoted += "\\n";
      text.remove_prefix(end + 1);
    }
  }
  return quoted + "\"";
}

std::string json_list(const std::vector<std::string>& texts) {
  std::string list = "[";
  for (const std::string& text : texts) {
    if (list.size() > 1) list += ",";
    list += json_text(text);
  }
  return list + "]";
}

std::vector<std::string> indent_xml(std::string_view document) {
  if (trimmed(document).substr(0, 1) != "<") return split_lines(document);
  std::vector<std::string> lines;
  std::size_t depth = 0;
  bool leaf = false;  // the last line is an opened element that nothing but text has followed
  while (!document.empty()) {
    const std::string_view token = first_token(document);
    document.remove_prefix(token.size());
    const std::string_view content = trimmed(token);
    if (content.empty()) continue;
    const bool tag = content[0] == '<';
    const bool closing = content.substr(0, 2) == "</";
    if (closing && depth > 0) depth--;
    if (leaf && (closing || !tag)) {
      lines.back() += content;
    } else {
      lines.push_back(std::string(2 * (depth < kDeepest ? depth : kDeepest), ' ') + std::string(content));
    }
    const bool opening = tag && !closing && content[1] != '?' && content[1] != '!' && content.size() > 2 &&
                         content[content.size() - 2] != '/';
    if (opening) depth++;
    if (tag) leaf = opening;
  }
  return lines;
}

std::string url_decoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); i++) {
    unsigned int code = 0;
    const char* const digits = text.data() + i + 1;
    if (text[i] == '%' && i + 2 < text.size() &&
        std::from_chars(digits, digits + 2, code, 16).ptr == digits + 2) {
      decoded += static_cast<char>(static_cast<unsigned char>(code));
      i += 2;
    } else {
      decoded += text[i] == '+' ? ' ' : text[i];
    }
  }
  return decoded;
}

std::vector<std::string> split_lines(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    while (!line.empty() && line.back() == '\r')
      line.remove_suffix(1);
    lines.emplace_back(line);
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

}  // namespace camera
