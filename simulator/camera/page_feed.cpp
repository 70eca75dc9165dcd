// What the camera tells its page: its state and the journal, as one JSON document.
#include <array>
#include <fstream>

#include "simulator/camera/camera.h"
#include "simulator/device/clock.h"
#include "simulator/device/device.h"
#include "simulator/tools/numbers.h"
#include "simulator/tools/text.h"

namespace camera {
namespace {

std::vector<std::string> name_servers() {
  std::vector<std::string> servers;
  std::ifstream file(kResolverFile);
  std::string word;
  while (file >> word) {
    if (word == "nameserver" && file >> word) servers.push_back(word);
  }
  return servers;
}

std::string cgi_answer(const std::string& status, const std::string& type, const std::string& body) {
  return "Status: " + status + "\r\nContent-Type: " + type +
         "\r\nContent-Length: " + std::to_string(body.size()) + "\r\nCache-Control: no-store\r\n\r\n" + body;
}

}  // namespace

// The camera's own accounts may look, as far as they may read.
bool Camera::may_look(const Exchange& exchange) const {
  const std::string credentials = basic_credentials(exchange.authorization);
  for (const std::vector<std::string>& user : query("select UserID, Password from User where Level < 4")) {
    if (credentials == user[0] + ":" + user[1]) return true;
  }
  return false;
}

std::string Camera::state() const {
  const auto up_for = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - booted_at_);
  return std::string("{\"up\":") + (is_down() ? "false" : "true") +
         ",\"clock\":" + json_text(camera_time(service_zone_)) +
         ",\"zone\":" + json_text(service_zone_.empty() ? zone_ : service_zone_) +
         ",\"uptime\":" + std::to_string(up_for.count()) + ",\"address\":" + json_text(live_address()) +
         ",\"nameServers\":" + json_list(name_servers()) + ",\"tables\":" + watch_.json() + "}";
}

std::string Camera::answer_itself(const Exchange& exchange) {
  const std::string log = "/camera/log?since=";
  const bool asks_log = exchange.url.compare(0, log.size(), log) == 0;
  if (exchange.url.compare(0, 8, "/camera/") != 0) {
    Exchange refused = exchange;
    refused.http_status = 503;
    journal_.refuse_request(refused);
    return cgi_answer("503 Service Unavailable", "text/plain", "The camera restarts.\n");
  }
  // No word of how to sign in: the browser would ask by itself, and the page asks already.
  if (!may_look(exchange)) return cgi_answer("401 Unauthorized", "text/plain", "Unauthorized\n");
  const auto since =
      whole_number<std::uint64_t>(exchange.url.substr(asks_log ? log.size() : 0), 0, UINT64_MAX);
  if (!since) return cgi_answer("404 Not Found", "text/plain", "There is only /camera/log?since=NUMBER.\n");
  return cgi_answer("200 OK", "application/json",
                    "{\"last\":" + std::to_string(journal_.last()) + ",\"now\":" + state() +
                        ",\"entries\":" + journal_.json(*since) + "}");
}

}  // namespace camera
