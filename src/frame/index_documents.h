// The documents by which clients explore the service: a ResourceList and a ResourceDescription per level.
#pragma once

#include "frame/request.h"

namespace psia {

struct Service;

void read_recursive_index(Service& service, const Request& request);
void read_root_index(Service& service, const Request& request);
void read_system_index(Service& service, const Request& request);
void read_network_index(Service& service, const Request& request);
void read_audio_index(Service& service, const Request& request);
void read_video_index(Service& service, const Request& request);
void read_security_index(Service& service, const Request& request);
void read_aaa_index(Service& service, const Request& request);
void read_streaming_index(Service& service, const Request& request);
void read_event_index(Service& service, const Request& request);

/// The root's and the Network level's description; the others break the line after the XML declaration.
void read_description(Service& service, const Request& request);
void read_description_with_line_break(Service& service, const Request& request);
void read_event_description(Service& service, const Request& request);

}  // namespace psia
