// What the camera answers instead of the service: refusals of requests that another web site makes, 503
// during an outage, and the interface below /camera/ for the page and for test programs, which
// docs/clients.md describes.
#include <strings.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "simulator/camera/camera.h"
#include "simulator/device/clock.h"
#include "simulator/device/device.h"
#include "simulator/front/tcp_socket.h"
#include "simulator/tools/numbers.h"
#include "simulator/tools/text.h"

namespace camera {
namespace {

constexpr std::string_view kControlPrefix = "/camera/";
constexpr int kMaxWait = 30;  // seconds for which a request of the log may wait

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

std::string refusal(const std::string& status, const std::string& reason) {
  return cgi_answer(status, "text/plain; charset=utf-8", harmless(reason) + "\n");
}

bool is_control(const Exchange& exchange) {
  return exchange.url.compare(0, kControlPrefix.size(), kControlPrefix) == 0;
}

// The level of the request's account; 4 when there is none. admin:admin always has level 0 here, so that a
// test that has changed this password can still reset the camera.
int level_of(const Exchange& exchange) {
  const std::string credentials = basic_credentials(exchange.authorization);
  if (credentials == "admin:admin") return 0;
  int level = 4;
  for (const auto& user : query("select UserID, Password, Level from User where Level between 0 and 3")) {
    if (credentials == user[0] + ":" + user[1]) level = std::min(level, user[2][0] - '0');
  }
  return level;
}

// The name or address of "NAME:PORT", an IPv6 address without its brackets.
std::string host_name(const std::string& authority) {
  if (authority.compare(0, 1, "[") == 0) return authority.substr(1, authority.find(']') - 1);
  return authority.substr(0, authority.find(':'));
}

bool is_same_text(const std::string& one, const std::string& other) {
  return strcasecmp(one.c_str(), other.c_str()) == 0;
}

std::map<std::string, std::string> query_of(const std::string& url) {
  std::map<std::string, std::string> values;
  const std::size_t start = url.find('?');
  std::istringstream pairs(start == std::string::npos ? "" : url.substr(start + 1));
  for (std::string pair; std::getline(pairs, pair, '&');) {
    const std::size_t equals = std::min(pair.find('='), pair.size());
    values[pair.substr(0, equals)] =
        url_decoded(std::string_view(pair).substr(std::min(equals + 1, pair.size())));
  }
  return values;
}

}  // namespace

// Empty, or why a request is refused because a page of another web site may have made a browser send it. An
// unknown host name is refused because the other site's name server could give it this camera's address.
std::string Camera::foreign(const Exchange& exchange) const {
  const std::string name = host_name(exchange.host);
  const bool known = exchange.host.empty() || is_ip_address(name) || is_same_text(name, "localhost") ||
                     std::any_of(options_.allowed_hosts.begin(), options_.allowed_hosts.end(),
                                 [&name](const std::string& allowed) { return is_same_text(allowed, name); });
  if (!known)
    return "The Host header names " + name + ". Start the camera with --allow-host " + name + " to allow it.";
  const std::string& origin = exchange.origin;
  if (origin.empty() || is_same_text(origin, "http://" + exchange.host) ||
      is_same_text(origin, "https://" + exchange.host)) {
    return "";
  }
  return "A page of " + origin + " sent this request; only the camera's own pages may.";
}

bool Camera::answers_itself(const Exchange& exchange) const {
  return is_control(exchange) || is_down() || ending_ || !foreign(exchange).empty();
}

std::string Camera::state() const {
  const auto up_for = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - booted_at_);
  std::vector<std::string> answers;
  for (const AnswerRule& rule : rules_)
    answers.push_back(to_text(rule));
  return std::string("{\"up\":") + (is_down() ? "false" : "true") +
         ",\"clock\":" + json_text(camera_time(service_zone_)) +
         ",\"zone\":" + json_text(service_zone_.empty() ? zone_ : service_zone_) +
         ",\"uptime\":" + std::to_string(up_for.count()) + ",\"address\":" + json_text(live_address()) +
         ",\"nameServers\":" + json_list(name_servers()) + ",\"answers\":" + json_list(answers) +
         ",\"tables\":" + watch_->json() + "}";
}

std::optional<std::string> Camera::answer_itself(const Exchange& exchange) {
  Exchange refused = exchange;
  if (const std::string reason = foreign(exchange); !reason.empty()) {
    refused.http_status = 403;
    journal_.refuse_request(refused, "refused: " + reason);
    return refusal("403 Forbidden", reason);
  }
  if (!is_control(exchange)) {
    refused.http_status = 503;
    const std::string reason = ending_ ? "The camera ends." : "The camera restarts.";
    journal_.refuse_request(refused, "refused: " + reason);
    return refusal("503 Service Unavailable", reason);
  }
  // No WWW-Authenticate: the browser would ask for a password, and the page asks already.
  const int level = level_of(exchange);
  if (level > 3) return refusal("401 Unauthorized", "Unauthorized");
  const std::string path = exchange.url.substr(0, exchange.url.find('?'));
  if (path == "/camera/log" && exchange.method == "GET") return answer_log(exchange);
  if (level > 0) return refusal("403 Forbidden", "Only an administrator may do this.");
  return control(exchange);
}

// Null while the client waits for an entry.
std::optional<std::string> Camera::answer_log(const Exchange& exchange) const {
  auto query = query_of(exchange.url);
  const auto since =
      whole_number<std::uint64_t>(query.count("since") > 0 ? query["since"] : "0", 0, UINT64_MAX);
  const auto wait = whole_number(query.count("wait") > 0 ? query["wait"] : "0", 0, kMaxWait);
  if (!since || !wait) {
    return refusal("400 Bad Request", "since is the id of an entry, and wait a number of seconds from 0 to " +
                                          std::to_string(kMaxWait) + ".");
  }
  const std::string entries = journal_.json(*since, query["contains"]);
  if (entries == "[]" && Clock::now() < exchange.arrived + std::chrono::seconds(*wait) && !ending_) {
    return std::nullopt;
  }
  return cgi_answer("200 OK", "application/json",
                    "{\"run\":" + std::to_string(run_) + ",\"last\":" + std::to_string(journal_.last()) +
                        ",\"now\":" + state() + ",\"entries\":" + entries + "}");
}

// Carries out the requests that change the simulation.
std::string Camera::control(const Exchange& exchange) {
  const std::string request = exchange.method + " " + exchange.url;
  if (request == "PUT /camera/reset") {
    const std::string fault = reset();
    if (!fault.empty()) return refusal("500 Internal Server Error", fault);
  } else if (request == "PUT /camera/answers") {
    std::vector<AnswerRule> rules;
    std::istringstream words(exchange.body_start);
    for (std::string word; words >> word;) {
      const std::optional<AnswerRule> rule = parse_answer_rule(word);
      if (!rule) return refusal("400 Bad Request", "'" + word + "' is not " + kAnswerRuleForm + ".");
      rules.push_back(*rule);
    }
    rules_ = std::move(rules);
    journal_.event("the daemons answer as usual" +
                   std::string(rules_.empty() ? "" : ", but for " + exchange.body_start));
  } else if (request == "PUT /camera/stop") {
    journal_.event("the camera ends, asked for over /camera/stop");
    ending_ = true;
  } else {
    return refusal("404 Not Found",
                   "There are GET /camera/log, PUT /camera/answers, PUT /camera/reset and PUT /camera/stop.");
  }
  return cgi_answer("200 OK", "application/json", "{\"last\":" + std::to_string(journal_.last()) + "}");
}

}  // namespace camera
