#include "event/notification_servers.h"

#include <cstdint>

#include "context.h"
#include "core/response.h"
#include "core/xml.h"
#include "event/store_document.h"
#include "network/interface_state.h"

namespace psia {

/// The server that a body describes.
struct RequestedServer {
  FixedText<128> alias;
  FixedText<128> address;
  FixedText<128> account;
  FixedText<128> password;
  FixedText<128> path;  // FTP only
  std::int32_t port = 0;
};

/// Where the two kinds of server differ: in documents and in the database.
struct ServerKind {
  const char* element;
  const char* list_element;
  const char* account_element;
  std::int32_t default_port;
  void (*append_content)(TextBuffer&, const Rows&, int row);
  Rows (*select)(Database&);
  Rows (*count)(Database&);
  bool (*update)(Database&, const RequestedServer&);
  bool (*insert)(Database&, const RequestedServer&);
  bool (*remove)(Database&, const char* alias);
  bool (*remove_all)(Database&);
};

namespace {

// Columns of both tables.
constexpr int kAlias = 1;
constexpr int kAddress = 2;
constexpr int kPort = 3;
constexpr int kAccount = 4;
constexpr int kPassword = 5;
constexpr int kPath = 6;  // FTP only

void append_addressing(TextBuffer& document, const char* address) {
  if (parse_dotted_quad(address, OctetOrder::kFirstHighest)) {
    document.append("<addressingFormatType>ipaddress</addressingFormatType>");
    document.append("<ipAddress>", address, "</ipAddress>");
  } else {
    document.append("<addressingFormatType>hostname</addressingFormatType>");
    document.append("<hostName>", address, "</hostName>");
  }
}

void append_mail_content(TextBuffer& document, const Rows& servers, int row) {
  document.append("<id>", servers.text(row, kAlias), "</id>");
  document.append("<authenticationMode>SMTP</authenticationMode>");
  append_addressing(document, servers.text(row, kAddress));
  document.append("<portNo>", servers.number(row, kPort), "</portNo>");
  document.append("<accountName>", servers.text(row, kAccount), "</accountName>");
  document.append("<password>", servers.text(row, kPassword), "</password>");
}

void append_ftp_content(TextBuffer& document, const Rows& servers, int row) {
  document.append("<id>", servers.text(row, kAlias), "</id>");
  append_addressing(document, servers.text(row, kAddress));
  document.append("<portNo>", servers.number(row, kPort), "</portNo>");
  document.append("<userName>", servers.text(row, kAccount), "</userName>");
  document.append("<password>", servers.text(row, kPassword), "</password>");
  document.append("<uploadPath>", servers.text(row, kPath), "</uploadPath>");
}

}  // namespace

const ServerKind kMailServers = {
    .element = "MailingNotification",
    .list_element = "MailingNotificationList",
    .account_element = "accountName",
    .default_port = 25,
    .append_content = append_mail_content,
    .select = [](Database& database) { return database.query("select * from SMTPServer"); },
    .count = [](Database& database) { return database.query("select count(*) from SMTPServer"); },
    .update =
        [](Database& database, const RequestedServer& server) {
          return database.execute(
              "update SMTPServer set Address='%s', UserID='%s', Password='%s', Port=%d where Alias='%s'",
              server.address.c_str(), server.account.c_str(), server.password.c_str(), server.port,
              server.alias.c_str());
        },
    // The statement lacks its closing parenthesis, so the database refuses it. Kept for compatibility: a mail
    // server cannot be added over this interface, although clients receive OK.
    .insert =
        [](Database& database, const RequestedServer& server) {
          return database.execute(
              "insert into SMTPServer values (NULL, '%s', '%s', %d, '%s', '%s', '', '%s', '', '', 0",
              server.alias.c_str(), server.address.c_str(), server.port, server.account.c_str(),
              server.password.c_str(), server.account.c_str());
        },
    .remove =
        [](Database& database, const char* alias) {
          return database.execute("delete from SMTPServer where Alias='%s'", alias);
        },
    .remove_all = [](Database& database) { return database.execute("delete from SMTPServer"); },
};

const ServerKind kFtpServers = {
    .element = "FTPNotification",
    .list_element = "FTPNotificationList",
    .account_element = "userName",
    .default_port = 21,
    .append_content = append_ftp_content,
    .select = [](Database& database) { return database.query("select * from FTPServer"); },
    .count = [](Database& database) { return database.query("select count(*) from FTPServer"); },
    .update =
        [](Database& database, const RequestedServer& server) {
          return database.execute(
              "update FTPServer set Address='%s', UserID='%s', Password='%s', Port=%d, Path='%s' where Alias='%s'",
              server.address.c_str(), server.account.c_str(), server.password.c_str(), server.port,
              server.path.c_str(), server.alias.c_str());
        },
    .insert =
        [](Database& database, const RequestedServer& server) {
          return database.execute("insert into FTPServer values (NULL, '%s', '%s', %d, '%s', '%s', '%s')",
                                  server.alias.c_str(), server.address.c_str(), server.port,
                                  server.account.c_str(), server.password.c_str(), server.path.c_str());
        },
    .remove =
        [](Database& database, const char* alias) {
          return database.execute("delete from FTPServer where Alias='%s'", alias);
        },
    .remove_all = [](Database& database) { return database.execute("delete from FTPServer"); },
};

namespace {

/// The element of row `row`, empty when there is no such row.
void append_server(TextBuffer& document, const ServerKind& kind, const Rows& servers, int row) {
  document.append("<", kind.element, " version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  if (row < servers.count()) kind.append_content(document, servers, row);
  document.append("</", kind.element, ">");
}

void append_list(Context& context, TextBuffer& document, const ServerKind& kind) {
  document.append("<", kind.list_element, " version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  const Rows servers = kind.select(context.database);
  for (int row = 0; row < servers.count(); ++row)
    append_server(document, kind, servers, row);
  document.append("</", kind.list_element, ">");
}

RequestedServer requested_server(XmlElement element, const ServerKind& kind) {
  RequestedServer server;
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

/// Runs `statement` for each server of a list and ignores its result; see store_document.
void store_each(Context& context, XmlElement list, const ServerKind& kind,
                bool (*statement)(Database&, const RequestedServer&)) {
  for (const XmlElement child : list) {
    if (child.is(kind.element)) (void)statement(context.database, requested_server(child, kind));
  }
}

constexpr int kMaxServers = 3;

}  // namespace

void append_notification_methods(Context& context, TextBuffer& document) {
  document.append("<EventNotificationMethods version=\"1.0\" xmlns=\"urn:psialliance-org\">");
  append_list(context, document, kMailServers);
  append_list(context, document, kFtpServers);
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

void read_notification_methods(Context& context, const Request& request) {
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationNoLineEnd);
    append_notification_methods(context, document);
  });
}

/// Changes servers. Cannot add any, and ignores the formats, which are fixed.
void write_notification_methods(Context& context, const Request& request) {
  store_document(context, request, "EventNotificationMethods", [&](XmlElement root) {
    for (const XmlElement child : root) {
      for (const ServerKind* kind : {&kMailServers, &kFtpServers}) {
        if (child.is(kind->list_element)) store_each(context, child, *kind, kind->update);
      }
    }
  });
}

void read_servers(Context& context, const Request& request, const ServerKind& kind) {
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationNoLineEnd);
    append_list(context, document, kind);
  });
}

void write_servers(Context& context, const Request& request, const ServerKind& kind) {
  store_document(context, request, kind.list_element,
                 [&](XmlElement root) { store_each(context, root, kind, kind.update); });
}

void add_servers(Context& context, const Request& request, const ServerKind& kind) {
  if (kind.count(context.database).number(0, 0) >= kMaxServers) {
    return answer_status(request, Status::kDeviceError);
  }
  store_document(context, request, kind.list_element,
                 [&](XmlElement root) { store_each(context, root, kind, kind.insert); });
}

void remove_servers(Context& context, const Request& request, const ServerKind& kind) {
  (void)kind.remove_all(context.database);
  answer_status(request, Status::kOk);
}

void read_server(Context& context, const Request& request, const ServerKind& kind) {
  print_xml(request, [&](TextBuffer& document) {
    document.append(kXmlDeclarationNoLineEnd);
    append_server(document, kind, kind.select(context.database), 0);
  });
}

void write_server(Context& context, const Request& request, const ServerKind& kind) {
  store_document(context, request, kind.element,
                 [&](XmlElement root) { (void)kind.update(context.database, requested_server(root, kind)); });
}

void remove_server(Context& context, const Request& request, const ServerKind& kind) {
  (void)kind.remove(context.database, request.tail);
  answer_status(request, Status::kOk);
}

}  // namespace psia
