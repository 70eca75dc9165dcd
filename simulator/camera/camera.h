// The simulated camera at work: the daemons behind the queues, boots and outages, the relay in front of the
// service, the journal of it all, and the interface that controls it.
//
// States:
//   up      booted_, and the service runs
//   due     booted_ and restart_at_: a reboot or factory reset was answered; the outage begins at restart_at_
//   down    restart_at_ without booted_: the service is stopped, and the camera answers each request with 503
// boot() leads back to up. ending_, in any state, stops the service and then ends run().
#pragma once

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulator/camera/daemons.h"
#include "simulator/camera/journal.h"
#include "simulator/camera/options.h"
#include "simulator/camera/service_process.h"
#include "simulator/camera/uploads.h"
#include "simulator/device/settings.h"
#include "simulator/front/relay.h"
#include "simulator/front/web_server.h"

namespace camera {

class Camera {
 public:
  /// For a process that has entered the device. `web_socket` listens for the web server; with -1 only the
  /// daemons work, without the service. `service_socket` listens at kServiceSocket. `ready` is called once,
  /// when the service has been started.
  Camera(const Options& options, std::string prefix, int web_socket, int service_socket,
         std::function<void()> ready);

  /// Runs until SIGINT, SIGTERM or SIGHUP, which `signals` (a signalfd) reports, until a client stops it, or
  /// until the web server or the shell (-1: there is none) has ended. Gives the exit status.
  [[nodiscard]] int run(int signals, WebServer& web_server, pid_t shell);

  /// Applies the stored settings to the device, as at every boot. run() calls it when there is a service to
  /// start.
  void boot();

  static constexpr const char* kServiceSocket = "/dev/psia.socket";

 private:
  using Clock = std::chrono::steady_clock;
  struct LateAnswer {
    Clock::time_point due;
    Message message;
  };

  // The daemons.
  void serve_messages();
  void serve_message(const Message& message);
  [[nodiscard]] std::string act_and_answer(const Message& message);
  [[nodiscard]] std::string answer(const Message& reply, const std::string& how);
  void notice_zone_of_request();
  void answer_all_waiting();

  // Boots.
  [[nodiscard]] bool is_down() const { return restart_at_ && !booted_; }
  [[nodiscard]] std::string tend_service();
  [[nodiscard]] std::string reset();

  // What the camera answers instead of the service: control.cpp.
  [[nodiscard]] bool answers_itself(const Exchange& exchange) const;
  [[nodiscard]] std::optional<std::string> answer_itself(const Exchange& exchange);
  [[nodiscard]] std::optional<std::string> answer_log(const Exchange& exchange) const;
  [[nodiscard]] std::string control(const Exchange& exchange);
  [[nodiscard]] std::string state() const;
  [[nodiscard]] std::string foreign(const Exchange& exchange) const;

  void wait(int signals);
  void end_request(const Exchange& exchange);

  const Options& options_;
  Journal journal_;
  std::optional<SettingsWatch> watch_;
  ServiceProcess service_;
  std::optional<Relay> relay_;
  Uploads uploads_;

  std::function<void()> ready_;
  std::vector<AnswerRule> rules_;
  std::vector<LateAnswer> late_;
  std::vector<Message> never_;  // messages that a rule leaves without an answer
  std::deque<Message> unsent_;  // while the reply queue is full
  std::string service_zone_;    // set by a client; lost when the service ends
  std::string zone_;
  std::int64_t run_;  // distinguishes the runs of the simulator, whose journals all begin with 1
  bool booted_ = false;
  bool ending_ = false;
  std::optional<Clock::time_point> restart_at_;  // see the states above
  Clock::time_point booted_at_;
};

}  // namespace camera
