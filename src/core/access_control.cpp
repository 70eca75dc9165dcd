#include "core/access_control.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "core/response.h"

namespace psia {

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kSchemeLength = 6;  // "Basic "

constexpr std::uint8_t kForeign = 64;  // in kSixBits: not in the alphabet

/// The value of each character of the alphabet.
constexpr std::array<std::uint8_t, 256> kSixBits = [] {
  std::array<std::uint8_t, 256> table{};
  table.fill(kForeign);
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
  }
  return table;
}();

/// Compares a supplied password with the stored one. The time it takes does not depend on where they differ.
bool same_password(const FixedText<32>& supplied, const char* stored) {
  const FixedText<32> expected(stored);
  std::size_t difference = std::strlen(supplied.c_str()) ^ std::strlen(stored);
  const std::size_t length = std::strlen(expected.c_str());
  for (std::size_t i = 0; i < length; ++i) {
    difference |= static_cast<unsigned char>(supplied.c_str()[i] ^ expected.c_str()[i]);
  }
  return difference == 0;
}

int refuse(int result) {
  write_text(
      "Status: 401 Unauthorized\r\n"
      "WWW-Authenticate: Basic realm=\"Quellan Smart IP Device Authentication\"\r\n"
      "Content-Type: text/plain\r\n\r\n"
      "Unauthorized\r\n\r\n");
  return result;
}

Rows find_user(Database& database, const Credentials& credentials) {
  return database.query("select * from User where UserID='%s'", credentials.user.c_str());
}

int level_of(const Rows& user, const Credentials& credentials) {
  if (!user.found()) return refuse(-3);
  if (!same_password(credentials.password, user.text(0, 1))) return refuse(-2);
  if (user.is_null(0, 2)) return refuse(-3);
  return user.number(0, 2);
}

}  // namespace

std::size_t decode_base64(const char* text, char* output, std::size_t limit) {
  std::size_t written = 0;
  unsigned int bits = 0;
  int characters = 0;
  for (; *text != '\0'; ++text) {
    const unsigned int value = kSixBits[static_cast<unsigned char>(*text)];
    if (value == kForeign) continue;
    bits = bits << 6U | value;
    const int position = characters++ % 4;
    // The second, third and fourth character of a group each complete a byte, with 4, 2 and 0 bits to spare.
    if (position == 0 || written >= limit) continue;
    output[written++] = static_cast<char>(static_cast<unsigned char>(bits >> (6 - 2 * position)));
  }
  return written;
}

Credentials decode_credentials(const char* authorization) {
  std::array<char, 127> decoded{};
  const bool too_short = std::strlen(authorization) < kSchemeLength;
  const std::size_t length =
      too_short ? 0 : decode_base64(authorization + kSchemeLength, decoded.data(), decoded.size());

  std::array<char, 32> user{};
  std::array<char, 32> password{};
  auto put = [](std::array<char, 32>& text, std::size_t index, char byte) {
    if (index < text.size() - 1) text[index] = byte;
  };
  bool after_colon = false;
  std::size_t index = 0;
  for (const char byte : std::string_view(decoded.data(), length)) {
    if (byte == ':') {
      put(user, index, '\0');
      after_colon = true;
      index = 0;
    } else {
      put(after_colon ? password : user, index++, byte);
    }
  }
  put(password, index, '\0');  // without a colon the password is empty anyway
  return {FixedText<32>(user.data()), FixedText<32>(password.data())};
}

int check_access(Database& database, const char* authorization) {
  if (authorization == nullptr) return refuse(-1);
  const Credentials credentials = decode_credentials(authorization);
  if (!database.follow_file()) return refuse(-3);
  const Rows user = find_user(database, credentials);
  if (!user.unreadable()) return level_of(user, credentials);
  (void)database.open_again();
  return level_of(find_user(database, credentials), credentials);
}

}  // namespace psia
