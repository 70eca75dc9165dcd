// The map of the service: which URL, method and user level reach which handler.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

/// Calls the handler of the first route that takes the request, or answers ResponseStatus 4 when none does:
/// unknown URL, method not offered or user level too low. `request.tail` need not be set yet.
void dispatch(Service& service, const Request& request);

}  // namespace psia
