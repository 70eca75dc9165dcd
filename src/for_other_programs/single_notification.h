// For the camera's other programs, which link this folder's library; no request reaches it. Handlers of a
// single notification, .../triggers/<id>/notifications/<id>: over HTTP such a URL is served as the list of
// notifications. Both ids are taken from the request's tail, at most 255 characters of each.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

void read_notification(Context& context, const Request& request);
/// The id in the body decides; the one in the URL is ignored.
void write_notification(Context& context, const Request& request);
/// Kept for compatibility: links what the URL names instead of unlinking it.
void remove_notification(Context& context, const Request& request);

}  // namespace psia
