// The mail and FTP servers that notifications go to. A server's alias is its id on the wire; triggers link to
// its numeric key. Account passwords are shown in clear to every user who may read.
#pragma once

#include "frame/request.h"

namespace psia {

class TextBuffer;
struct Service;

/// Appends the EventNotificationMethods element: all servers of both kinds and the fixed upload formats.
void append_notification_methods(Service& service, TextBuffer& document);

void read_notification_methods(Service& service, const Request& request);
void write_notification_methods(Service& service, const Request& request);

/// One of the two kinds of server.
struct ServerKind;
extern const ServerKind kMailServers;
extern const ServerKind kFtpServers;

// What is done with the servers of either kind; `of<kMailServers, list_servers>` is the handler for mail
// servers. The results of the statements are not told to the client.

void list_servers(Service& service, const Request& request, const ServerKind& kind);
void update_servers(Service& service, const Request& request, const ServerKind& kind);
/// Refuses when three servers are stored. That is looked at once per request: a list longer than the room
/// that is left is stored whole.
void add_servers(Service& service, const Request& request, const ServerKind& kind);
void delete_servers(Service& service, const Request& request, const ServerKind& kind);

/// Shows the first server there is, whatever id the URL names.
void read_server(Service& service, const Request& request, const ServerKind& kind);
/// The id in the body says which server is changed; the one in the URL counts for nothing.
void update_server(Service& service, const Request& request, const ServerKind& kind);
/// Deletes the server whose alias is the request's tail.
void delete_server(Service& service, const Request& request, const ServerKind& kind);

template <const ServerKind& kKind, void (*kServe)(Service&, const Request&, const ServerKind&)>
void of(Service& service, const Request& request) {
  kServe(service, request, kKind);
}

}  // namespace psia
