// camera-daemons: stands in for the camera's daemons on a development board that has none. Makes the settings
// databases and the message queues on the board itself, and answers the service's messages. It has no
// namespaces around it, so it leaves the board's address, name servers, clock and zone alone.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "simulator/camera/daemons.h"
#include "simulator/device/device.h"
#include "simulator/device/message.h"
#include "simulator/device/settings.h"
#include "simulator/tools/descriptor.h"
#include "simulator/tools/text.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kHelp =
    "Usage: camera-daemons    (as root, on a development board; it takes no options)\n"
    "\n"
    "Plays the daemons of a camera for the PSIA management service until it is ended: makes\n"
    "/usr/local/orvid/morvid.db, conf/default.db beside it, the exchange directory and both message queues where\n"
    "they are missing, prints each message of the service, and answers that it is done. Exports, factory resets\n"
    "and the time mode are carried out; the board's address, name servers, clock and zone stay as they are.\n"
    "\n"
    "It refuses where a morvid.db exists that it did not make: that is a camera. To begin with the factory's rows\n"
    "again, end camera-daemons and the service, and remove /usr/local/orvid.\n";

/// Marks the databases that this program made, in the place that SQLite has for it.
constexpr const char* kOwnMark = "1347635521";  // PSIA

volatile std::sig_atomic_t ending = 0;

void end(int /*signal*/) {
  ending = 1;
}

/// Makes both databases, or takes those of an earlier run. Returns an empty text or the fault.
std::string prepare_settings() {
  bool found = false;
  for (const char* path : {camera::kDatabase, camera::kDefaultsDatabase}) {
    if (!fs::exists(path)) continue;
    found = true;
    const auto mark = camera::query("pragma application_id", path);
    if (mark.empty() || mark[0][0] != kOwnMark) {
      return std::string(path) +
             " was not made by camera-daemons. On a camera with daemons of its own there is nothing to do\n"
             "for it. Where the file is a left-over, remove it and /usr/local/orvid/conf/default.db.";
    }
  }
  if (found && fs::exists(camera::kDatabase) && fs::exists(camera::kDefaultsDatabase)) return "";
  std::string fault = camera::create_settings();
  for (const char* path : {camera::kDefaultsDatabase, camera::kDatabase}) {
    if (fault.empty()) fault = camera::execute(std::string("pragma application_id=") + kOwnMark, path);
  }
  return fault;
}

/// Queues that are there stay: a service that runs knows them by their ids.
std::string prepare_queues() {
  for (const int key : {camera::kRequestQueueKey, camera::kReplyQueueKey}) {
    if (msgget(key, IPC_CREAT | 0666) < 0) {
      return camera::system_error("Cannot create message queue " + std::to_string(key)) +
             ". The kernel needs CONFIG_SYSVIPC.";
    }
  }
  return "";
}

/// `lock` is held as long as this program runs.
std::string prepare(camera::Descriptor& lock) {
  try {
    const fs::path directory = fs::path(camera::kDefaultsDatabase).parent_path();
    fs::create_directories(directory);
    fs::create_directories(camera::kExchangeDirectory);
    lock = camera::Descriptor(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (flock(lock.number, LOCK_EX | LOCK_NB) != 0) return "camera-daemons runs already.";
    const std::string fault = prepare_settings();
    return fault.empty() ? prepare_queues() : fault;
  } catch (const fs::filesystem_error& error) {
    return error.what();
  }
}

/// Does what of a message can be done on a board without changing the board, and says what was done.
std::string act_and_answer(const camera::Message& message) {
  camera::Deed deed{camera::reply_to(message, camera::kResultDone), "nothing on this board changes"};
  std::string fault;
  switch (camera::command_of(message)) {
    case camera::kClock:
      fault = camera::execute("update Network set DateTimeSync=" +
                              std::to_string(camera::integer_at(message, 12)));
      deed.said = "the mode is stored, the board's clock stays";
      break;
    case camera::kFactoryReset:
      fault = camera::restore_factory_rows();
      deed.said = "the factory's rows are back";
      break;
    case camera::kExport:
      deed = camera::act_on(message);
      break;
    default:
      break;
  }
  if (!fault.empty()) deed = {camera::reply_to(message, camera::kResultFailed), fault};
  if (!camera::send_reply(deed.reply)) return "the reply queue is full or gone";
  return deed.said.empty() ? "done" : deed.said;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    const bool asked = std::string_view(argv[1]) == "--help";
    std::fputs(kHelp, asked ? stdout : stderr);
    return asked ? 0 : 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  camera::use_settings_of_this_machine();
  camera::Descriptor lock(-1);
  const std::string fault = prepare(lock);
  if (!fault.empty()) {
    std::fprintf(stderr, "%s\n", fault.c_str());
    return 1;
  }
  for (const int number : {SIGINT, SIGTERM, SIGHUP})
    std::signal(number, end);
  std::printf(
      "The settings and both message queues are there. Accounts, name:password:\n"
      "  admin:admin  operator:operator  viewer:viewer  guest:guest\n");
  while (ending == 0) {
    const auto message = camera::receive_message(std::chrono::milliseconds(200));
    if (!message) continue;
    const std::string words = camera::describe(*message) + "; " + act_and_answer(*message);
    std::printf("%s\n", camera::harmless(words).c_str());
  }
  return 0;
}
