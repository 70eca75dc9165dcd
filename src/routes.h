// The map of the service: which URL, method and user level reach which handler.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

/// Calls the handler of the first route that takes the request, or answers ResponseStatus 4 when none does:
/// unknown URL, method not offered or user level too low. `request.tail` need not be set yet.
void dispatch(Context& context, const Request& request);

}  // namespace psia
