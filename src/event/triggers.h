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
void read_notification(Service& service, const Request& request, const char* trigger_id,
                       const char* notification_id);
/// Works from the id in the body; the one in the URL counts for nothing.
void write_notification(Service& service, const Request& request, const char* trigger_id,
                        const char* notification_id);
/// Links what `notification_id` names, instead of unlinking it. Intended.
void delete_notification(Service& service, const Request& request, const char* trigger_id,
                         const char* notification_id);

}  // namespace psia
