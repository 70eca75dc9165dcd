// Unix sockets by their paths, which a socket's address cuts at 107 characters (unix(7)).
#pragma once

#include <string>

#include "simulator/descriptor.h"

namespace camera {

/// A stream that is connected to the socket at the path; without a descriptor when nobody listens there.
[[nodiscard]] Descriptor connect_to(const std::string& path);

/// A socket that listens at the path, in place of whatever is there; without a descriptor when that fails.
[[nodiscard]] Descriptor listen_at(const std::string& path);

}  // namespace camera
