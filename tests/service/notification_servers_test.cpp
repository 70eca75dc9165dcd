// The mail and FTP servers: how stored rows read, and what each change makes of them.
#include "tests/support/event_test.h"

namespace psia_tests {
namespace {

const std::string kBase = "/PSIA/Custom/Event/notification";
const std::string kMail = kBase + "/mailing";
const std::string kFtp = kBase + "/ftp";

std::string address(const std::string& type, const std::string& name, const std::string& value) {
  return element("addressingFormatType", type) + element(name, value);
}
std::string mail(const std::string& id, const std::string& address, const std::string& rest) {
  return shown("MailingNotification",
               "<id>" + id + "</id><authenticationMode>SMTP</authenticationMode>" + address + rest);
}
std::string ftp(const std::string& id, const std::string& address, const std::string& rest) {
  return shown("FTPNotification", "<id>" + id + "</id>" + address + rest);
}

class NotificationServersTest : public EventTest {};

TEST_F(NotificationServersTest, ReadsShowTheRowsInTheirOrder) {
  const auto expect_reads = [this](const std::string& mails, const std::string& ftps,
                                   const std::string& first_mail, const std::string& first_ftp) {
    const std::string mail_list = shown("MailingNotificationList", mails);
    const std::string ftp_list = shown("FTPNotificationList", ftps);
    expect_read(kMail, mail_list);
    expect_read(kFtp, ftp_list);
    const std::string formats =
        "<FTPFormat><uploadSnapShotEnabled>false</uploadSnapShotEnabled><uploadVideoClipEnabled>true"
        "</uploadVideoClipEnabled></FTPFormat><MediaFormat><snapShotImageType>JPEG</snapShotImageType>"
        "<videoClipFormatType>264</videoClipFormatType></MediaFormat>";
    expect_read(kBase, shown("EventNotificationMethods", mail_list + ftp_list + formats));
    for (const char* id : {"/", "/Mail-1", "/FTP-1"}) {  // the id in the URL is not looked at
      expect_read(kMail + id, first_mail);
      expect_read(kFtp + id, first_ftp);
    }
  };
  const std::string mail1 =
      mail("Mail-1", address("hostname", "hostName", "mail.example.com"),
           "<portNo>25</portNo><accountName>camera</accountName><password>mailpass</password>");
  const std::string ftp1 = ftp("FTP-1", address("ipaddress", "ipAddress", "192.168.1.20"),
                               "<portNo>21</portNo><userName>camera</userName><password>ftppass</password>"
                               "<uploadPath>/snapshots</uploadPath>");
  expect_reads(mail1, ftp1, mail1, ftp1);
  run_sql("insert into SMTPServer values (0, 'it''s %s', '1.2.3', 3, '<b>', '%%%%', 'f', 'g', 'h', 'i', 1)");
  run_sql("insert into FTPServer values (7, '', '300.1.1.1', 2121, '', 'e', '')");
  const std::string mail0 = mail("it's %s", address("hostname", "hostName", "1.2.3"),
                                 "<portNo>3</portNo><accountName><b></accountName><password>%</password>");
  const std::string ftp7 =
      ftp("", address("ipaddress", "ipAddress", "300.1.1.1"),
          "<portNo>2121</portNo><userName></userName><password>e</password><uploadPath></uploadPath>");
  expect_reads(mail0 + mail1, ftp1 + ftp7, mail0, ftp1);
  run_sql("delete from SMTPServer; drop table FTPServer");
  expect_reads("", "", shown("MailingNotification", ""), shown("FTPNotification", ""));
}

TEST_F(NotificationServersTest, UpdatesChangeTheServerThatTheBodyNames) {
  run_sql(
      "insert into SMTPServer values (5, 'Mail-5', 'h', 26, 'u', 'p', 'six', 'seven', 'eight', 'nine', 10);"
      "insert into SMTPServer values (6, '', 'h', 26, 'u', 'p', '', '', '', '', 0);"
      "insert into FTPServer values (5, 'FTP-5', 'h', 22, 'u', 'p', '/old')");
  const std::string text(127, 'x');
  const std::string rest =
      "<portNo> 9x</portNo><ACCOUNTNAME>a</ACCOUNTNAME><userName>u</userName><password>p</password>"
      "<uploadPath>/</uploadPath>";
  for (const auto& [fields, mail_row, ftp_row] :
       Triples{{"<id>Mail-1</id><id>FTP-1</id>", "", "FTPServer|1|FTP-1||21|||"},  // the last id counts
               {"<x><id>Mail-5</id></x>", "SMTPServer|6|||25|||||||0", ""},  // no id: the server without one
               {"<ID>Mail-5</ID><ipAddress>1.2.3.4</ipAddress><HostName>mx</HostName>" + rest,
                "SMTPServer|5|Mail-5|mx|9|a|p|six|seven|eight|nine|10", ""},
               {"<id>FTP-5</id><hostName>mx</hostName><ipAddress>1.2.3.4</ipAddress>" + rest, "",
                "FTPServer|5|FTP-5|1.2.3.4|9|u|p|/"},
               {"<id>FTP-5</id>" + element("hostName", text + "y") + element("userName", text + "y") +
                    element("password", text + "y") + element("uploadPath", text + "y"),
                "", "FTPServer|5|FTP-5|" + text + "|21|" + text + "|" + text + "|" + text},
               {"<id>Mail-5</id><password>it's</password>", "", ""}}) {  // a quote fails the statement
    // By themselves under any id, in a list, in the combined document; what is not at its place is skipped,
    // and nothing is carried over from the server before.
    const std::string one_mail = element("MailingNotification", fields);
    const std::string one_ftp = element("FTPNotification", fields);
    const std::string mails = element("MailingNotificationLIST",
                                      "<FTPNotification><id>Mail-1</id></FTPNotification>" +
                                          element("MailingNotification", "<id>x</id>" + rest) + one_mail);
    const std::string ftps =
        element("FTPNotificationList", "<MailingNotification><id>FTP-1</id></MailingNotification>" +
                                           element("FTPNotification", "<id>x</id>" + rest) + one_ftp);
    for (const auto& [uri, body, changed] : Triples{
             {kMail + "/FTP-1", one_mail, mail_row},
             {kMail, mails, mail_row},
             {kBase, element("EventNotificationMethods", mails + element("FTPFormat", one_ftp)), mail_row},
             {kFtp + "/", one_ftp, ftp_row},
             {kFtp, ftps, ftp_row},
             {kBase, element("eventnotificationmethods", ftps + element("X", one_mail)), ftp_row}}) {
      run_sql("update SMTPServer set Address='-' where SMTPServerID!=1; update FTPServer set Address='-'");
      EXPECT_EQ(changes("PUT", uri, element("X", body), 3), "");
      EXPECT_EQ(changes("PUT", uri, body), changed) << body;
    }
  }
}

TEST_F(NotificationServersTest, FtpServersAreAddedUpToTheLimitMailServersNever) {
  const auto ftps = [](const std::string& servers) { return element("FTPNotificationList", servers); };
  const std::string long_id = element("id", std::string(128, 'x'));
  EXPECT_EQ(changes("POST", kFtp,
                    ftps("<x/><FTPNotification>" + long_id +
                         "<hostName>&lt;h&gt;</hostName><userName>%s</userName><password>p</password>"
                         "<uploadPath>/</uploadPath></FTPNotification>")),
            "FTPServer|2|" + std::string(127, 'x') + "|<h>|21|%s|p|/");
  EXPECT_EQ(changes("POST", kFtp, element("X", ftps("")), 3), "");
  // Looked at once: two are there, so all of a longer list are taken, less the one whose statement fails.
  EXPECT_EQ(changes("POST", kFtp,
                    ftps("<FTPNotification><portNo>1</portNo></FTPNotification>"
                         "<FTPNotification><id>'</id></FTPNotification><FTPNotification/>")),
            "FTPServer|3|||1|||;FTPServer|4|||21|||");
  run_sql("delete from FTPServer where FTPServerID=4");
  EXPECT_EQ(changes("POST", kFtp, ftps(""), 3), "");

  // One mail server, two, four, then no table at all.
  const std::string mails = "<MailingNotificationList><MailingNotification/></MailingNotificationList>";
  EXPECT_EQ(changes("POST", kMail, element("X", mails), 3), "");
  const std::string twice =
      "insert into SMTPServer select null, Alias, Address, Port, '', '', '', '', '', '', 0 from SMTPServer";
  for (const auto& [sql, code] : std::vector<std::pair<std::string, int>>{
           {"", 1}, {twice, 1}, {twice, 3}, {"drop table SMTPServer", 1}}) {
    run_sql(sql);
    EXPECT_EQ(changes("POST", kMail, mails, code), "") << sql;
  }
}

TEST_F(NotificationServersTest, DeletesTakeTheServersWithTheUrlsId) {
  const std::string long_id = "a/b" + std::string(300, 'x');
  run_sql("insert into FTPServer values (2, 'FTP-1', 'h', 1, '', '', ''), (3, '" + long_id +
          "', 'h', 1, '', '', ''), (4, 'FTP-4', 'h', 1, '', '', '')");
  run_sql("insert into SMTPServer values (9, 'FTP-1', 'h', 1, '', '', '', '', '', '', 0)");
  for (const auto& [uri, removed] :
       Pairs{{"/ftp/ftp-1", ""},
             {"/ftp/' or '1'='1", ""},
             {"/ftp/" + long_id, "-FTPServer|3|" + long_id + "|h|1|||"},
             {"/ftp/FTP-1",
              "-FTPServer|1|FTP-1|192.168.1.20|21|camera|ftppass|/snapshots;-FTPServer|2|FTP-1|h|1|||"},
             {"/ftp/", ""},  // the server without an id, not all of them
             {"/ftp", "-FTPServer|4|FTP-4|h|1|||"},
             {"/mailing/FTP-1", "-SMTPServer|9|FTP-1|h|1|||||||0"},
             {"/mailing", "-SMTPServer|1|Mail-1|mail.example.com|25|camera|mailpass||camera|||0"}}) {
    EXPECT_EQ(changes("DELETE", kBase + uri), removed) << uri;
  }
}

}  // namespace
}  // namespace psia_tests
