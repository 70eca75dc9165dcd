// Unix sockets by their paths, which may have 107 characters (unix(7)).
#pragma once

#include <string>

#include "simulator/tools/descriptor.h"

namespace camera {

/// A stream connected to the socket at the path. Without a descriptor when nobody listens there; errno tells
/// why.
[[nodiscard]] Descriptor connect_to(const std::string& path);

/// A socket that listens at the path, for this user only. A socket file on which nobody listens any more is
/// replaced; any other file stays. Without a descriptor when that fails; errno tells why (ENAMETOOLONG for a
/// path above 107 characters or an empty one, EADDRINUSE for one that is taken).
[[nodiscard]] Descriptor listen_at(const std::string& path);

}  // namespace camera
