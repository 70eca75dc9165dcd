#include "security/users.h"

#include <strings.h>

#include <cstring>
#include <optional>

#include "context.h"
#include "core/numbers.h"
#include "core/response.h"
#include "core/xml.h"

namespace psia {

namespace {

constexpr std::size_t kLongestNumber = 3;

struct Account {
  FixedText<32> name;
  FixedText<32> password;
};

bool is_name(const FixedText<32>& name, const char* account) {
  return strcasecmp(name.c_str(), account) == 0;
}

/// Takes a userName or password element into `account`; true when the element completes a pair, which only a
/// password after its name does.
bool take_account(XmlElement element, Account& account) {
  if (element.is("userName")) element.copy_text(account.name);
  if (!element.is("password")) return false;
  element.copy_text(account.password);
  return !account.name.empty() && !account.password.empty();
}

bool store_password(Database& database, const Account& account) {
  return database.execute("update User set Password='%s' where UserID='%s'", account.password.c_str(),
                          account.name.c_str());
}

/// Stores the passwords of a User element up to the first statement that fails. False when one failed,
/// nothing when the element asks for none.
std::optional<bool> store_passwords(Database& database, XmlElement user, Account& account) {
  std::optional<bool> stored;
  for (const XmlElement child : user) {
    if (!take_account(child, account) || is_name(account.name, "anonymous")) continue;
    stored = store_password(database, account);
    if (!*stored) break;
  }
  return stored;
}

bool has_several_passwords(XmlElement root) {
  int passwords = 0;
  for (const XmlElement child : root)
    passwords += child.is("password") ? 1 : 0;
  return passwords > 1;
}

enum class Added {
  kAll,
  kUntilRefusal,  // the name exists, or the search for it failed
  kUntilFailure,  // an insert failed
};

Added insert_users(Database& database, XmlElement root) {
  Account account;
  for (const XmlElement child : root) {
    if (!take_account(child, account)) continue;
    const Rows same = database.query("select count(*) from User where UserID='%s'", account.name.c_str());
    if (!same.found() || same.number(0, 0) > 0) return Added::kUntilRefusal;
    if (!database.execute("insert into User values('%s', '%s', 2)", account.name.c_str(),
                          account.password.c_str())) {
      return Added::kUntilFailure;
    }
    account = {};
  }
  return Added::kAll;
}

/// Appends a User element. The login name is also the id.
void append_user(TextBuffer& document, const char* attributes, const char* name) {
  document.append("<User version=\"1.0\"", attributes, "><id>", name, "</id><userName>", name,
                  "</userName></User>");
}

/// The rows for the user that a URI names; only the first one is meant.
Rows find_user(Database& database, const char* name) {
  if (std::strlen(name) > kLongestNumber) {
    return database.query("select * from User where UserID='%s'", name);
  }
  const std::int32_t number = to_int32(name);
  if (number < 1) return {};
  return database.query("select * from User where UserID!='admin' and UserID!='anonymous' limit %d", number);
}

}  // namespace

void read_users(Context& context, const Request& request) {
  const Rows users = context.database.query("select * from User");
  answer_xml(request, [&users](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    document.append("<UserList version=\"1.0\" xmlns=\"urn:psialliance-org\">");
    for (int row = 0; row < users.count(); ++row)
      append_user(document, "", users.text(row, 0));
    document.append("</UserList>");
  });
}

void write_users(Context& context, const Request& request) {
  const XmlDocument document = receive_document(request, "UserList");
  if (!document) return answer_status(request, Status::kDeviceError);
  Account account;  // kept from one User to the next: a password without a name is for the previous user
  int stored = 0;
  int failed = 0;
  Transaction transaction(context.database);
  for (const XmlElement user : document.root()) {
    if (!user.is("User")) continue;
    if (const std::optional<bool> result = store_passwords(context.database, user, account)) {
      ++(*result ? stored : failed);
    }
  }
  if (!transaction.commit()) failed += stored;
  for (; failed > 0; --failed)
    answer_status(request, Status::kDeviceError);
  answer_status(request, Status::kOk);  // clients receive it after the others
}

void add_users(Context& context, const Request& request) {
  const XmlDocument document = receive_document(request, "User");
  if (!document) return answer_status(request, Status::kDeviceError);
  std::optional<Transaction> transaction;
  if (has_several_passwords(document.root())) transaction.emplace(context.database);
  Added added = insert_users(context.database, document.root());
  if (transaction && !transaction->commit()) added = Added::kUntilFailure;
  if (added != Added::kAll) answer_status(request, Status::kDeviceError);
  if (added != Added::kUntilRefusal) answer_status(request, Status::kOk);  // also after the other
}

void remove_users(Context& context, const Request& request) {
  answer_done(request,
              context.database.execute("delete from User where UserID != 'admin' and UserID != 'anonymous'"));
}

void read_user(Context& context, const Request& request) {
  const Rows user = find_user(context.database, request.tail);
  if (!user.found()) return answer_status(request, Status::kDeviceError);
  answer_xml(request, [&user](TextBuffer& document) {
    document.append(kXmlDeclarationCrLf);
    append_user(document, kNamespace, user.text(0, 0));
  });
}

void write_user(Context& context, const Request& request) {
  const XmlDocument document = receive_document(request, "User");
  if (!document) return answer_status(request, Status::kDeviceError);
  Account account{FixedText<32>(request.tail), {}};
  for (const XmlElement child : document.root()) {
    if (child.is("password")) child.copy_text(account.password);
  }
  if (is_name(account.name, "anonymous")) return;
  answer_done(request, store_password(context.database, account));
}

void remove_user(Context& context, const Request& request) {
  const FixedText<32> name(request.tail);
  if (is_name(name, "admin") || is_name(name, "anonymous")) return;
  answer_done(request, context.database.execute("delete from User where UserID='%s'", request.tail));
}

}  // namespace psia
