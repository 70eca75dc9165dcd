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

void list_mailing_servers(Service& service, const Request& request);
void update_mailing_servers(Service& service, const Request& request);
void add_mailing_servers(Service& service, const Request& request);
void delete_mailing_servers(Service& service, const Request& request);
void read_mailing_server(Service& service, const Request& request);
void update_mailing_server(Service& service, const Request& request);
void delete_mailing_server(Service& service, const Request& request);

void list_ftp_servers(Service& service, const Request& request);
void update_ftp_servers(Service& service, const Request& request);
void add_ftp_servers(Service& service, const Request& request);
void delete_ftp_servers(Service& service, const Request& request);
void read_ftp_server(Service& service, const Request& request);
void update_ftp_server(Service& service, const Request& request);
void delete_ftp_server(Service& service, const Request& request);

}  // namespace psia
