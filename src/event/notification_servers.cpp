#include "event/notification_servers.h"

#include <cstdint>

#include "event/change.h"
#include "frame/response.h"
#include "frame/service.h"
#include "frame/xml.h"
#include "network/interface_address.h"

namespace psia {

namespace {

/// One server as a body gives it.
struct Server {
  FixedText<128> alias;
  FixedText<128> address;
  FixedText<128> account;
  FixedText<128> password;
  FixedText<128> path;  // FTP only
  std::int32_t port = 0;
};

/// Where the two kinds of server differ in a body and in the database.
struct ServerKind {
  const char* element;
  const char* list_element;
  const char* account_element;
  std::int32_t default_port;
  void (*update)(Database&, const Server&);
  void (*insert)(Database&, const Server&);
};

void update_mail_row(Database& database, const Server& server) {
  (void)database.execute(
      "update SMTPServer set Address='%s', UserID='%s', Password='%s', Port=%d where Alias='%s'",
      server.address.c_str(), server.account.c_str(), server.password.c_str(), server.port,
      server.alias.c_str());
}

/// The statement lacks its closing parenthesis, so that the database refuses it: a mail server cannot be
/// added over this interface, though clients are answered that it was. Intended.
void insert_mail_row(Database& database, const Server& server) {
  (void)database.execute(
      "insert into SMTPServer values (NULL, '%s', '%s', %d, '%s', '%s', '', '%s', '', '', 0",
      server.alias.c_str(), server.address.c_str(), server.port, server.account.c_str(),
      server.password.c_str(), server.account.c_str());
}

void update_ftp_row(Database& database, const Server& server) {
  (void)database.execute(
      "update FTPServer set Address='%s', UserID='%s', Password='%s', Port=%d, Path='%s' where Alias='%s'",
      server.address.c_str(), server.account.c_str(), server.password.c_str(), server.port,
      server.path.c_str(), server.alias.c_str());
}

void insert_ftp_row(Database& database, const Server& server) {
  (void)database.execute("insert into FTPServer values (NULL, '%s', '%s', %d, '%s', '%s', '%s')",
                         server.alias.c_str(), server.address.c_str(), server.port, server.account.c_str(),
                         server.password.c_str(), server.path.c_str());
}

constexpr ServerKind kMail = {
    "MailingNotification", "MailingNotificationList", "accountName", 25, update_mail_row, insert_mail_row};
constexpr ServerKind kFtp = {"FTPNotification", "FTPNotificationList", "userName", 21,
                             update_ftp_row,    insert_ftp_row};

// Places of the columns in a row of either table.
constexpr int kAlias = 1;
constexpr int kAddress = 2;
constexpr int kPort = 3;
constexpr int kAccount = 4;
constexpr int kPassword = 5;
constexpr int kPath = 6;  // FTP only

void append_addressing(TextBuffer& document, const char* address) {
  if (parse_dotted_quad(address, OctetOrder::kFirstHighest)) {
    document.append("<addressingFormatType>ipaddress</addressingFormatType>");
    document.append("<ipAddress>%s</ipAddress>", address);
  } else {
    document.append("<addressingFormatType>hostname</addressingFormatType>");
    document.append("<hostName>%s</hostName>", address);
  }
}

/// The element of row `row`, empty when there is no such row.
void append_mailing_server(TextBuffer& document, const Rows& servers, int row) {
  document.append("<MailingNotification version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  if (row < servers.count()) {
    document.append("<id>%s</id>", servers.text(row, kAlias));
    document.append("<authenticationMode>SMTP</authenticationMode>");
    append_addressing(document, servers.text(row, kAddress));
    document.append("<portNo>%d</portNo>", servers.number(row, kPort));
    document.append("<accountName>%s</accountName>", servers.text(row, kAccount));
    document.append("<password>%s</password>", servers.text(row, kPassword));
  }
  document.append("</MailingNotification>");
}

/// The element of row `row`, empty when there is no such row.
void append_ftp_server(TextBuffer& document, const Rows& servers, int row) {
  document.append("<FTPNotification version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  if (row < servers.count()) {
    document.append("<id>%s</id>", servers.text(row, kAlias));
    append_addressing(document, servers.text(row, kAddress));
    document.append("<portNo>%d</portNo>", servers.number(row, kPort));
    document.append("<userName>%s</userName>", servers.text(row, kAccount));
    document.append("<password>%s</password>", servers.text(row, kPassword));
    document.append("<uploadPath>%s</uploadPath>", servers.text(row, kPath));
  }
  document.append("</FTPNotification>");
}

Rows select_mailing_servers(Service& service) {
  return service.database.query("select * from SMTPServer");
}

Rows select_ftp_servers(Service& service) {
  return service.database.query("select * from FTPServer");
}

void append_mailing_list(Service& service, TextBuffer& document) {
  document.append("<MailingNotificationList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  const Rows servers = select_mailing_servers(service);
  for (int row = 0; row < servers.count(); ++row)
    append_mailing_server(document, servers, row);
  document.append("</MailingNotificationList>");
}

void append_ftp_list(Service& service, TextBuffer& document) {
  document.append("<FTPNotificationList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  const Rows servers = select_ftp_servers(service);
  for (int row = 0; row < servers.count(); ++row)
    append_ftp_server(document, servers, row);
  document.append("</FTPNotificationList>");
}

Server read_server(const XmlElement& element, const ServerKind& kind) {
  Server server;
  server.port = kind.default_port;
  for (const XmlElement child : element) {
    if (child.is("id")) child.copy_text(server.alias);
    if (child.is("hostName") || child.is("ipAddress")) child.copy_text(server.address);
    if (child.is("portNo")) server.port = child.number();
    if (child.is(kind.account_element)) child.copy_text(server.account);
    if (child.is("password")) child.copy_text(server.password);
    if (child.is("uploadPath")) child.copy_text(server.path);
  }
  return server;
}

void update_each(Service& service, const XmlElement& list, const ServerKind& kind) {
  for (const XmlElement child : list) {
    if (child.is(kind.element)) kind.update(service.database, read_server(child, kind));
  }
}

void update_list(Service& service, const Request& request, const ServerKind& kind) {
  store_document(request, kind.list_element,
                 [&](const XmlElement& root) { update_each(service, root, kind); });
}

/// The id in the URL counts for nothing: the one in the body says which server is changed.
void update_one(Service& service, const Request& request, const ServerKind& kind) {
  store_document(request, kind.element,
                 [&](const XmlElement& root) { kind.update(service.database, read_server(root, kind)); });
}

constexpr int kMostServers = 3;

/// Refuses when `counted`, the number of stored servers, has reached three. That is looked at once per
/// request: a list longer than the room that is left is stored whole.
void add_list(Service& service, const Request& request, const Rows& counted, const ServerKind& kind) {
  if (counted.number(0, 0) >= kMostServers) return answer_status(request, Status::kDeviceError);
  store_document(request, kind.list_element, [&](const XmlElement& root) {
    for (const XmlElement child : root) {
      if (child.is(kind.element)) kind.insert(service.database, read_server(child, kind));
    }
  });
}

}  // namespace

void append_notification_methods(Service& service, TextBuffer& document) {
  document.append("<EventNotificationMethods version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  append_mailing_list(service, document);
  append_ftp_list(service, document);
  document.append("<FTPFormat>");
  document.append("<uploadSnapShotEnabled>false</uploadSnapShotEnabled>");
  document.append("<uploadVideoClipEnabled>true</uploadVideoClipEnabled>");
  document.append("</FTPFormat>");
  document.append("<MediaFormat>");
  document.append("<snapShotImageType>JPEG</snapShotImageType>");
  document.append("<videoClipFormatType>264</videoClipFormatType>");
  document.append("</MediaFormat>");
  document.append("</EventNotificationMethods>");
}

void read_notification_methods(Service& service, const Request& request) {
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationBare);
    append_notification_methods(service, document);
  });
}

/// Servers can be changed this way, not added; the formats are fixed.
void write_notification_methods(Service& service, const Request& request) {
  store_document(request, "EventNotificationMethods", [&](const XmlElement& root) {
    for (const XmlElement child : root) {
      if (child.is(kMail.list_element)) update_each(service, child, kMail);
      if (child.is(kFtp.list_element)) update_each(service, child, kFtp);
    }
  });
}

void list_mailing_servers(Service& service, const Request& request) {
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationBare);
    append_mailing_list(service, document);
  });
}

void update_mailing_servers(Service& service, const Request& request) {
  update_list(service, request, kMail);
}

void add_mailing_servers(Service& service, const Request& request) {
  add_list(service, request, service.database.query("select count(*) from SMTPServer"), kMail);
}

void delete_mailing_servers(Service& service, const Request& request) {
  (void)service.database.execute("delete from SMTPServer");
  answer_status(request, Status::kOk);
}

/// Shows the first server there is, whatever id the URL names.
void read_mailing_server(Service& service, const Request& request) {
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationBare);
    append_mailing_server(document, select_mailing_servers(service), 0);
  });
}

void update_mailing_server(Service& service, const Request& request) {
  update_one(service, request, kMail);
}

void delete_mailing_server(Service& service, const Request& request) {
  (void)service.database.execute("delete from SMTPServer where Alias='%s'", request.tail);
  answer_status(request, Status::kOk);
}

void list_ftp_servers(Service& service, const Request& request) {
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationBare);
    append_ftp_list(service, document);
  });
}

void update_ftp_servers(Service& service, const Request& request) {
  update_list(service, request, kFtp);
}

void add_ftp_servers(Service& service, const Request& request) {
  add_list(service, request, service.database.query("select count(*) from FTPServer"), kFtp);
}

void delete_ftp_servers(Service& service, const Request& request) {
  (void)service.database.execute("delete from FTPServer");
  answer_status(request, Status::kOk);
}

/// Shows the first server there is, whatever id the URL names.
void read_ftp_server(Service& service, const Request& request) {
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationBare);
    append_ftp_server(document, select_ftp_servers(service), 0);
  });
}

void update_ftp_server(Service& service, const Request& request) {
  update_one(service, request, kFtp);
}

void delete_ftp_server(Service& service, const Request& request) {
  (void)service.database.execute("delete from FTPServer where Alias='%s'", request.tail);
  answer_status(request, Status::kOk);
}

}  // namespace psia
