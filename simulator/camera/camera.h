// The simulated camera at work: the daemons behind the queues, boots and outages, the relay in front of the
// service, and what of it all is told.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <deque>
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
  /// In a process that has entered the device. `web_socket` is where the web server connects; -1 leaves the
  /// service out, and only the daemons work. `service_socket` listens at kServiceSocket.
  Camera(const Options& options, std::string prefix, int web_socket, int service_socket);

  /// Runs until SIGINT, SIGTERM or SIGHUP, which `signals` (a signalfd) tells, or until the web server or the
  /// shell has ended (-1: there is none). Gives the exit status.
  [[nodiscard]] int run(int signals, WebServer& web_server, pid_t shell);

  /// Makes the stored settings those of the device, as at every boot; run() does it by itself where there is
  /// a service to start.
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

  // Boots.
  [[nodiscard]] bool is_down() const { return restart_at_ && !booted_; }
  [[nodiscard]] std::string tend_service();

  // The page.
  [[nodiscard]] std::string answer_itself(const Exchange& exchange);
  [[nodiscard]] std::string state() const;
  [[nodiscard]] bool may_look(const Exchange& exchange) const;

  void wait(int signals);
  void end_request(const Exchange& exchange);

  const Options& options_;
  Journal journal_;
  SettingsWatch watch_;
  ServiceProcess service_;
  std::optional<Relay> relay_;
  Uploads uploads_;

  std::vector<LateAnswer> late_;
  std::deque<Message> unsent_;  // while the reply queue is full
  std::string service_zone_;    // that a client gave the service for as long as it runs
  std::string zone_;
  bool booted_ = false;
  bool ending_ = false;
  std::optional<Clock::time_point> restart_at_;  // an outage is due or under way
  Clock::time_point booted_at_;
};

}  // namespace camera
