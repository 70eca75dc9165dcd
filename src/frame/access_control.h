// Who is calling: HTTP Basic authentication against the device's user table, before anything else is done
// with a request.
#pragma once

#include <cstddef>

#include "frame/database.h"
#include "frame/fixed_text.h"

namespace psia {

struct Credentials {
  FixedText<32> user;
  FixedText<32> password;
};

/// Decodes base 64 (RFC 4648, standard alphabet) into `output`, at most `limit` bytes, and returns how many
/// were stored. Characters outside the alphabet are skipped, padding and line breaks included.
[[nodiscard]] std::size_t decode_base64(const char* text, char* output, std::size_t limit);

/// Takes user name and password out of an Authorization header. The scheme word and the blank behind it, the
/// first six characters, are not looked at. Of the decoded text 127 bytes count, of name and password 31
/// each, as many as the users resource stores. With several colons the password is what follows the last one,
/// and each further colon cuts the name to the length of the password part before it.
[[nodiscard]] Credentials decode_credentials(const char* authorization);

/// Checks the value of the Authorization header (null when there is none). Returns the caller's user level. A
/// negative result ends the request: -1 without a header, -2 wrong password, -3 unknown user, one without a
/// level or failed query, all three already answered with 401; a negative level stored for the user is
/// returned as it is, and nothing is answered.
[[nodiscard]] int check_access(Database& database, const char* authorization);

}  // namespace psia
