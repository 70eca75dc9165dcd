// The camera's one alarm trigger, its sensor input, and the notifications linked to it: a relay output, an
// upload to an FTP server, a mail. A trigger or relay goes by its alias in SensorRelay, a server by its own.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

// /PSIA/Custom/Event
void read_event(Service& service, const Request& request);
void write_event(Service& service, const Request& request);

// .../triggers
void list_triggers(Service& service, const Request& request);
void write_triggers(Service& service, const Request& request);

// .../triggers/<id>; the request's tail is the id.
void read_trigger(Service& service, const Request& request);
void write_trigger(Service& service, const Request& request);
void unlink_trigger(Service& service, const Request& request);

// .../triggers/<id>/notifications; the id is the request's tail up to the first '/', at most 255 characters
// of it.
void list_notifications(Service& service, const Request& request);
void write_notifications(Service& service, const Request& request);
void post_notification(Service& service, const Request& request);
void unlink_notifications(Service& service, const Request& request);

// .../triggers/<id>/notifications/<id>. No route leads here: such a URL is served as the notification list.
// Both ids are taken from the request's tail, at most 255 characters of each.
void read_notification(Service& service, const Request& request);
/// Works from the id in the body; the one in the URL counts for nothing.
void write_notification(Service& service, const Request& request);
/// Links what the URL names, instead of unlinking it. Intended.
void delete_notification(Service& service, const Request& request);

}  // namespace psia
