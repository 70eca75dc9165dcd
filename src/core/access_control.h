// HTTP Basic authentication (RFC 7617) against the device's user table, before anything else is done with a
// request.
#pragma once

#include <cstddef>

#include "core/database.h"
#include "core/fixed_text.h"

namespace psia {

struct Credentials {
  FixedText<32> user;
  FixedText<32> password;
};

/// Decodes base 64 (RFC 4648, standard alphabet) into `output`, at most `limit` bytes, and returns how many
/// were stored. Characters outside the alphabet are skipped, padding and line breaks included.
[[nodiscard]] std::size_t decode_base64(const char* text, char* output, std::size_t limit);

/// Takes user name and password out of an Authorization header. Its first six characters, the scheme and a
/// blank, are ignored. The decoded text is truncated to 127 bytes, name and password to 31 bytes each, as in
/// the users resource. The password follows the last colon. Each further colon truncates the name to the
/// length of the password part before it.
[[nodiscard]] Credentials decode_credentials(const char* authorization);

/// Checks the value of the Authorization header (null when there is none) and returns the user's level. A
/// negative result ends the request. -1 (no header), -2 (wrong password) and -3 (unknown user, user without a
/// level, failed query) were answered with 401 already. A negative level that is stored for the user is
/// returned unchanged, and nothing is answered. Also notices a replaced database file; see Database.
[[nodiscard]] int check_access(Database& database, const char* authorization);

}  // namespace psia
