// The mail and FTP servers that receive notifications. Clients know a server by its alias, triggers link to
// its numeric key. Every user who may read sees the account passwords.
#pragma once

#include "core/request.h"

namespace psia {

class TextBuffer;
struct Context;

/// Appends the EventNotificationMethods element: all servers of both kinds and the fixed upload formats.
void append_notification_methods(Context& context, TextBuffer& document);

void read_notification_methods(Context& context, const Request& request);
void write_notification_methods(Context& context, const Request& request);

/// One of the two kinds of server.
struct ServerKind;
extern const ServerKind kMailServers;
extern const ServerKind kFtpServers;

// Requests about the servers of either kind; `serve<kMailServers, read_servers>` is the handler for mail
// servers. The client is not told what the statements gave.

void read_servers(Context& context, const Request& request, const ServerKind& kind);
void write_servers(Context& context, const Request& request, const ServerKind& kind);
/// Refuses when three servers are stored. It looks once per request: a list exceeding the free slots is
/// stored whole.
void add_servers(Context& context, const Request& request, const ServerKind& kind);
void remove_servers(Context& context, const Request& request, const ServerKind& kind);

/// Shows the first server there is, whatever id the URL names.
void read_server(Context& context, const Request& request, const ServerKind& kind);
/// The id in the body says which server is changed; the one in the URL is ignored.
void write_server(Context& context, const Request& request, const ServerKind& kind);
/// Deletes the server whose alias is the request's tail.
void remove_server(Context& context, const Request& request, const ServerKind& kind);

template <const ServerKind& kKind, void (*kHandler)(Context&, const Request&, const ServerKind&)>
void serve(Context& context, const Request& request) {
  kHandler(context, request, kKind);
}

}  // namespace psia
