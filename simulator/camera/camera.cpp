#include "simulator/camera/camera.h"

#include <strings.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <utility>

#include "simulator/device/clock.h"
#include "simulator/device/device.h"

namespace camera {
namespace {

constexpr std::chrono::seconds kFarewell{4};  // a little more than ServiceProcess::stop takes

// The text of an element in the start of a body; empty when there is none.
std::string element_text(const std::string& body, const std::string& name) {
  const std::string open = "<" + name + ">";
  const std::size_t start = body.find(open);
  if (start == std::string::npos) return "";
  const std::size_t end = body.find('<', start + open.size());
  return end == std::string::npos ? "" : body.substr(start + open.size(), end - start - open.size());
}

}  // namespace

Camera::Camera(const Options& options, std::string prefix, int web_socket, int service_socket,
               std::function<void()> ready)
    : options_(options),
      journal_(std::move(prefix)),
      service_(options.service, service_socket,
               {[this](const std::string& text) { journal_.printed(text); },
                [this](const std::string& line) { journal_.message(line); }}),
      ready_(std::move(ready)),
      rules_(options.rules),
      run_(std::chrono::system_clock::now().time_since_epoch() / std::chrono::milliseconds(1)) {
  watch_.emplace();
  if (web_socket < 0) return;
  relay_.emplace(web_socket, kServiceSocket,
                 Relay::Listener{[this](const Exchange& exchange) { return answers_itself(exchange); },
                                 [this](const Exchange& exchange) { return answer_itself(exchange); },
                                 [this](const Exchange& exchange) { journal_.begin_request(exchange); },
                                 [this](const Exchange& exchange) { end_request(exchange); }});
}

// Everything that the request caused has happened by now; the rest is to record it.
void Camera::end_request(const Exchange& exchange) {
  service_.step();
  serve_messages();
  if (const auto words = uploads_.news()) journal_.message(*words);
  journal_.end_request(exchange, watch_->changes());
}

std::string Camera::answer(const Message& reply, const std::string& how) {
  if (unsent_.empty() && send_reply(reply)) return how;
  unsent_.push_back(reply);
  return how + "; the reply queue is full, the answer waits";
}

std::string Camera::act_and_answer(const Message& message) {
  const Deed deed = act_on(message, service_zone_);
  const bool done = integer_at(deed.reply, kResultOffset) == kResultDone;
  const std::int32_t command = command_of(message);
  if (done && command == kFactoryReset) uploads_.forget();
  // A second later, so that the client still receives its answer.
  if (done && (command == kReboot || command == kFactoryReset))
    restart_at_ = Clock::now() + std::chrono::seconds(1);
  return answer(deed.reply, done ? "done" : "failed") + (deed.said.empty() ? "" : " (" + deed.said + ")");
}

// A message of kClock holds a local time without its zone. It is in the zone of the last PUT of the time.
void Camera::notice_zone_of_request() {
  const std::string url = "/PSIA/System/time";
  const Exchange* request = relay_ ? relay_->current() : nullptr;
  if (request == nullptr || strcasecmp(request->method.c_str(), "PUT") != 0) return;
  if (strncasecmp(request->url.c_str(), url.c_str(), url.size()) != 0) return;
  if (request->url.compare(url.size(), 1, "/") == 0) return;
  const std::string zone = element_text(request->body_start, "timeZone");
  service_zone_ = zone.empty() ? "UTC0" : zone;
}

void Camera::serve_message(const Message& message) {
  AnswerRule rule;
  for (const AnswerRule& given : rules_) {
    if (given.command == command_of(message)) rule = given;
  }
  // The service is stopping and must not wait.
  if (ending_ || is_down()) rule.kind = AnswerKind::kFailed;
  if (command_of(message) == kClock) notice_zone_of_request();
  std::string how;
  switch (rule.kind) {
    case AnswerKind::kOk:
      how = act_and_answer(message);
      break;
    case AnswerKind::kBusy:
      how = answer(reply_to(message, kResultBusy), "busy");
      break;
    case AnswerKind::kFailed:
      how = answer(reply_to(message, kResultFailed), "failed");
      break;
    case AnswerKind::kLate:
      how = "follows in " + std::to_string(rule.delay.count()) + " s";
      late_.push_back({Clock::now() + rule.delay, message});
      break;
    case AnswerKind::kNever:
      how = "never";
      never_.push_back(message);
      break;
  }
  journal_.message(describe(message) + "; answer: " + how);
}

void Camera::serve_messages() {
  while (!unsent_.empty()) {
    const bool asker_gone = kill(static_cast<pid_t>(unsent_.front().type), 0) != 0 && errno == ESRCH;
    if (!asker_gone && !send_reply(unsent_.front())) break;
    journal_.message(
        "command " + std::to_string(command_of(unsent_.front())) +
        (asker_gone ? ": who asked has ended, the answer is dropped" : ": the waiting answer is sent"));
    unsent_.pop_front();
  }
  while (const std::optional<Message> message = receive_message())
    serve_message(*message);
  for (std::size_t i = late_.size(); i-- > 0;) {
    if (late_[i].due > Clock::now()) continue;
    const Message message = late_[i].message;
    late_.erase(late_.begin() + static_cast<std::ptrdiff_t>(i));
    journal_.message("command " + std::to_string(command_of(message)) +
                     ", the late answer: " + act_and_answer(message));
  }
}

// Answers the messages that the service still waits for, so that it can stop at once.
void Camera::answer_all_waiting() {
  for (const LateAnswer& late : late_)
    never_.push_back(late.message);
  late_.clear();
  for (const Message& message : never_) {
    const bool asker_gone = kill(static_cast<pid_t>(message.type), 0) != 0 && errno == ESRCH;
    if (asker_gone || relay_->current() == nullptr) continue;
    journal_.message(
        "command " + std::to_string(command_of(message)) +
        ", before the service stops; answer: " + answer(reply_to(message, kResultFailed), "failed"));
  }
  never_.clear();
}

void Camera::boot() {
  std::vector<std::string> details;
  const auto tell = [&details](const std::string& words) {
    if (!words.empty()) details.push_back(words);
  };
  late_.clear();
  never_.clear();
  unsent_.clear();
  service_zone_.clear();
  tell(uploads_.apply().value_or(""));
  tell(apply_addressing());
  const auto zone = query("select TimeZone from Network");
  zone_ = zone.empty() ? "" : zone[0][0];
  if (!take_zone(zone_)) tell("there is no zone file for \"" + zone_ + "\", the camera's clock shows UTC");
  if (!restart_uptime())
    tell("the kernel has no time namespaces here: the time since start is the machine's");
  if (find_clock_library().empty()) tell("libfaketime is missing: the clock is always the machine's");
  booted_at_ = Clock::now();
  booted_ = true;
  restart_at_.reset();
  for (const std::string& change : watch_->changes())
    tell(change);
  journal_.event("the camera boots; eth0 has " + live_address() + ", the zone is " + zone_, details);
}

// Starts the service after a boot, or when it has ended by itself, and stops it for a restart. A service that
// ends by itself is started again after a second at the earliest. Returns an empty text or the fault.
std::string Camera::tend_service() {
  const Clock::time_point now = Clock::now();
  if (service_.runs()) {
    if (ending_) {
      answer_all_waiting();
      service_.stop();
    }
    if (!restart_at_ || now < *restart_at_ || !booted_) return "";
    booted_ = false;
    journal_.event("the camera goes down and is back in " + std::to_string(options_.boot.count()) + " s");
    answer_all_waiting();
    service_.stop();
    return "";
  }
  if (ending_) return "";
  if (!booted_) {
    if (restart_at_ && now < *restart_at_ + options_.boot) return "";
    boot();
    std::string fault = service_.start();
    if (fault.empty() && ready_) std::exchange(ready_, nullptr)();
    return fault;
  }
  return now < service_.ended_at() + std::chrono::seconds(1) ? "" : service_.start();
}

// Restores factory settings and the answer rules of the command line, without the outage of a factory reset.
// Returns an empty text or the fault.
std::string Camera::reset() {
  journal_.event("factory settings, asked for over /camera/reset");
  service_.end();
  std::string fault = reset_device();
  for (const std::string& statement : options_.statements) {
    if (fault.empty()) fault = execute(statement);
  }
  if (!fault.empty()) return fault;
  uploads_.forget();
  rules_ = options_.rules;
  watch_.emplace();  // the database is a new file
  boot();
  return service_.start();
}

// The queues cannot be polled, so the rounds are short while a request may send messages.
void Camera::wait(int signals) {
  std::vector<pollfd> events{{signals, POLLIN, 0}};
  service_.add_to(events);
  if (relay_) relay_->add_to(events);
  poll(events.data(), events.size(), relay_ && !relay_->has_work() ? 100 : 20);
  signalfd_siginfo signal{};
  while (read(signals, &signal, sizeof(signal)) == sizeof(signal)) {
    if (signal.ssi_signo != SIGCHLD) ending_ = true;
  }
}

int Camera::run(int signals, WebServer& web_server, pid_t shell) {
  std::optional<Clock::time_point> give_up_at;  // ends the wait for a client that does not read its answer
  while (true) {
    wait(signals);
    if (ending_ && !give_up_at) give_up_at = Clock::now() + kFarewell;
    service_.step();
    if (relay_) relay_->step();
    serve_messages();
    if (const auto words = uploads_.news()) journal_.message(*words);
    if (!relay_ || relay_->current() == nullptr) {
      for (const std::string& change : watch_->changes())
        journal_.event(change);
    }
    if (web_server.has_ended()) {
      journal_.event("the web server has ended");
      return 1;
    }
    if (shell > 0 && waitpid(shell, nullptr, WNOHANG) == shell) return 0;
    if (ending_ && !service_.runs() && (!relay_ || !relay_->has_work() || Clock::now() > *give_up_at))
      return 0;
    if (!relay_ && restart_at_ && Clock::now() >= *restart_at_) boot();
    const std::string fault = relay_ ? tend_service() : "";
    if (!fault.empty()) {
      journal_.event(fault);
      return 1;
    }
  }
}

}  // namespace camera
