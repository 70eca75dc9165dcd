// The camera's one alarm trigger, which is its sensor input, and the notifications linked to it: a relay
// output, an upload to an FTP server, a mail. The id of a trigger or relay is its alias in SensorRelay, that
// of a server its own.
#pragma once

#include "core/request.h"

namespace psia {

struct Context;

// /PSIA/Custom/Event
void read_event(Context& context, const Request& request);
void write_event(Context& context, const Request& request);

// .../triggers
void read_triggers(Context& context, const Request& request);
void write_triggers(Context& context, const Request& request);

// .../triggers/<id>; the request's tail is the id.
void read_trigger(Context& context, const Request& request);
void write_trigger(Context& context, const Request& request);
void remove_trigger(Context& context, const Request& request);

// .../triggers/<id>/notifications; the id is the request's tail up to the first '/', at most 255 characters
// of it.
void read_notifications(Context& context, const Request& request);
void write_notifications(Context& context, const Request& request);
void add_notification(Context& context, const Request& request);
void remove_notifications(Context& context, const Request& request);

}  // namespace psia
