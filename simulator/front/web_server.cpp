#include "simulator/front/web_server.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "simulator/front/tcp_socket.h"
#include "simulator/tools/child_process.h"
#include "simulator/tools/descriptor.h"

namespace camera {
namespace {

namespace fs = std::filesystem;

// lighttpd takes a listening socket over by systemd's protocol: the first is this descriptor
// (sd_listen_fds(3)).
constexpr int kFirstPassed = 3;

bool write_configuration(const std::string& path, const std::string& directory, const std::string& address,
                         int port, const std::string& page) {
  std::error_code fault;
  const std::string here = fs::absolute(directory, fault).string();
  const bool six = address.find(':') != std::string::npos;
  std::ofstream file(path);
  file << "server.modules = (\"mod_fastcgi\")\n"
          "server.systemd-socket-activation = \"enable\"\n"
          "server.bind = \""
       << (six ? "[" + address + "]" : address) << "\"\nserver.port = " << port
       << "\nserver.document-root = \"" << fs::absolute(page, fault).string()
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

std::string file_text(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

}  // namespace

std::string WebServer::start(const std::string& directory, const Descriptor& listener,
                             const std::string& address, const std::string& page) {
  const std::string configuration = directory + "/lighttpd.conf";
  if (!write_configuration(configuration, directory, address, port_of(listener), page))
    return system_error("Cannot write " + configuration);
  const pid_t parent = getpid();
  process_ = fork();
  if (process_ < 0) return system_error("Cannot start a process");
  if (process_ == 0) {
    begin_child(parent, SIGKILL);
    if (listener.number == kFirstPassed) {
      fcntl(kFirstPassed, F_SETFD, 0);
    } else {
      dup2(listener.number, kFirstPassed);
    }
    setenv("LISTEN_FDS", "1", 1);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    for (const char* program : {"lighttpd", "/usr/sbin/lighttpd"})
      execlp(program, "lighttpd", "-D", "-f", configuration.c_str(), nullptr);
    _exit(127);
  }
  const std::string log = directory + "/lighttpd.log";
  for (int attempt = 0; attempt < 500; attempt++) {
    if (has_ended()) return "The web server lighttpd has ended.\n" + file_text(log);
    if (file_text(log).find("server started") != std::string::npos) return "";
    usleep(10000);
  }
  return "The web server lighttpd does not start.\n" + file_text(log);
}

bool WebServer::has_ended() {
  if (process_ <= 0 || waitpid(process_, nullptr, WNOHANG) != process_) return false;
  process_ = -1;
  return true;
}

// SIGINT lets it finish the answers it is sending; a client that does not take its answer has half a second.
WebServer::~WebServer() {
  if (process_ <= 0) return;
  kill(process_, SIGINT);
  for (int attempt = 0; attempt < 50 && !has_ended(); attempt++)
    usleep(10000);
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace camera
