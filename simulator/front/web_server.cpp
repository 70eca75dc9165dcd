#include "simulator/front/web_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "simulator/tools/child_process.h"
#include "simulator/tools/descriptor.h"

namespace camera {
namespace {

namespace fs = std::filesystem;

bool write_configuration(const std::string& path, const std::string& directory, int port,
                         const std::string& page) {
  std::error_code fault;
  const std::string here = fs::absolute(directory, fault).string();
  std::ofstream file(path);
  file << "server.modules = (\"mod_fastcgi\")\n"
          "server.bind = \"127.0.0.1\"\n"
          "server.port = "
       << port << "\nserver.document-root = \"" << fs::absolute(page, fault).string()
       << "\"\n"
          "index-file.names = (\"index.html\")\n"
          "mimetype.assign = (\".html\" => \"text/html; charset=utf-8\", \".js\" => \"text/javascript; "
          "charset=utf-8\",\n"
          "  \".css\" => \"text/css; charset=utf-8\", \".json\" => \"application/json\")\n"
          "server.upload-dirs = (\""
       << here << "\")\nserver.errorlog = \"" << here
       << "/lighttpd.log\"\n"
          "# The service compares URLs without regard to case, so the web server does too.\n"
          "$HTTP[\"url\"] =~ \"(?i)^/(PSIA|camera)(/|$)\" {\n"
          "  fastcgi.server = (\"/\" => ((\"socket\" => \""
       << directory << "/psia.socket\", \"check-local\" => \"disable\")))\n}\n";
  file.close();
  return !file.fail();
}

bool listens(int port) {
  const Descriptor probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return connect(probe.number, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

std::string WebServer::start(const std::string& directory, int port, const std::string& page) {
  const std::string configuration = directory + "/lighttpd.conf";
  if (!write_configuration(configuration, directory, port, page))
    return system_error("Cannot write " + configuration);
  const pid_t parent = getpid();
  process_ = fork();
  if (process_ < 0) return system_error("Cannot start a process");
  if (process_ == 0) {
    begin_child(parent, SIGKILL);
    for (const char* program : {"lighttpd", "/usr/sbin/lighttpd"})
      execlp(program, "lighttpd", "-D", "-f", configuration.c_str(), nullptr);
    _exit(127);
  }
  for (int attempt = 0; attempt < 500; attempt++) {
    if (has_ended()) {
      std::ostringstream log;
      log << std::ifstream(directory + "/lighttpd.log").rdbuf();
      return "The web server lighttpd has ended.\n" + log.str();
    }
    if (listens(port)) return "";
    usleep(10000);
  }
  return "The web server lighttpd does not begin to listen.";
}

bool WebServer::has_ended() {
  if (process_ <= 0 || waitpid(process_, nullptr, WNOHANG) != process_) return false;
  process_ = -1;
  return true;
}

WebServer::~WebServer() {
  if (process_ <= 0) return;
  kill(process_, SIGTERM);
  while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace camera
