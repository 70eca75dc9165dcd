// bench-load: starts servers in a simulated camera of its own, sends them requests as a web server does, and
// measures what they cost. See kHelp.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "simulator/device/device.h"
#include "simulator/device/message.h"
#include "simulator/front/fastcgi_client.h"
#include "simulator/front/unix_socket.h"

namespace {

namespace fastcgi = camera::fastcgi;
using Clock = std::chrono::steady_clock;

constexpr const char* kHelp =
    "Usage: bench-load [OPTION]... -- SERVER [ARGUMENT]... [-- SERVER [ARGUMENT]...]...\n"
    "\n"
    "Starts each server in a simulated camera private to this program, with the FastCGI socket on descriptor\n"
    "0 and at once one after the other, sends requests, one connection each, checks the answers, and prints\n"
    "'NAME VALUE' lines. A server may stand behind a program that runs it in its own process (valgrind,\n"
    "qemu-arm-static, strace -D).\n"
    "\n"
    "  --kind NAME        what to send: one of those that --list shows, or all in turn: mix (default)\n"
    "  --request REQUEST  send this as the administrator instead: \"METHOD URI\", with the body in\n"
    "  --body FILE\n"
    "  --requests N       how many to send to each server, besides the first (default 1000)\n"
    "  --rounds N         in how many turns, one server after the other (default 1)\n"
    "  --in-flight N      connections open at once (default 1, at most 3: the daemons' queues hold no more)\n"
    "  --starts N         instead of all this start each server N times, for one request each\n"
    "  --record DIR       write the first answer of each kind as DIR/KIND\n"
    "  --list             show the kinds\n"
    "\n"
    "For each server the lines are: server, its command; private_start_kb, private_first_kb, private_end_kb,\n"
    "private dirty memory when it waits for the first request, after that and after all; peak_kb, the most\n"
    "memory it has had resident; cpu_us, processor time for one request, and per_second, requests answered,\n"
    "both of the best round, the one least disturbed by others. With --starts they are server and\n"
    "first_answer_us, from the start to the end of the first answer, the median.\n";

/// A kind of request. Answers must hold `expected`; messages to the daemons are answered at once.
struct Kind {
  std::string name;
  std::string method;
  std::string uri;
  std::string expected;
  std::string body = {};
  std::string rows = {};  // the statements that prepare the database when only this kind is sent
  int messages = 0;
};

constexpr const char* kUsers = "/PSIA/Security/AAA/users";
constexpr const char* kStatus = "/PSIA/Streaming/status";
constexpr const char* kDone = "<statusCode>1<";

/// Statements that leave `count` rows of users or of streaming clients.
std::string users(int count) {
  return "delete from User where UserID!='admin'; with recursive n(i) as (select 2 union all select i+1 from n)"
         "insert into User select 'viewer'||(10000+i), 'secret', 2 from n limit " +
         std::to_string(count - 1);
}
std::string clients(int count) {
  return "delete from ClientList; with recursive n(i) as (select 1 union all select i+1 from n)"
         "insert into ClientList select i, 'Master-0', '192.168.'||(100+i/100)||'.'||(100+i%100), 50000 from n limit " +
         std::to_string(count);
}

const std::vector<Kind>& kinds() {
  static const std::vector<Kind> all = {
      {"index", "GET", "/PSIA/index", "<ResourceList"},
      {"indexr", "GET", "/PSIA/indexr", "<ResourceList"},
      {"401", "GET", "/PSIA/index", "Status: 401 "},
      {"unknown", "GET", "/PSIA/System/nothing", "<statusCode>4<"},
      {"time", "GET", "/PSIA/System/time", "<Time"},
      {"deviceInfo", "GET", "/PSIA/System/deviceInfo", "<DeviceInfo"},
      {"interfaces", "GET", "/PSIA/System/Network/interfaces", "<NetworkInterfaceList"},
      {"channels", "GET", "/PSIA/Streaming/channels", "<StreamingChannelList"},
      {"capabilities", "GET", "/PSIA/Streaming/channels/1/capabilities", "<StreamingChannel"},
      {"users-3", "GET", kUsers, "<UserList", "", users(3)},
      {"users-100", "GET", kUsers, "<UserList", "", users(100)},
      {"users-1000", "GET", kUsers, "<UserList", "", users(1000)},
      {"status-0", "GET", kStatus, "<StreamingStatus", "", clients(0)},
      {"status-100", "GET", kStatus, "<StreamingStatus", "", clients(100)},
      {"status-1000", "GET", kStatus, "<StreamingStatus", "", clients(1000)},
      {"put-audio", "PUT", "/PSIA/System/Audio/channels/1", kDone,
       "<AudioChannel><id>1</id><enabled>true</enabled><audioMode>listenonly</audioMode></AudioChannel>", "",
       1},
      {"put-schedule", "PUT", "/PSIA/Custom/Event/schedule", kDone,
       "<EventSchedule><TimeBlockList><TimeBlock><dayOfWeek>2</dayOfWeek><TimeRange>"
       "<beginTime>08:00:00</beginTime><endTime>18:30:00</endTime></TimeRange></TimeBlock></TimeBlockList>"
       "</EventSchedule>"},
      // {n} becomes the number of the request, so that every user is new.
      {"post-user", "POST", kUsers, kDone,
       "<User><userName>user-{n}</userName><password>secret</password></User>"},
      {"delete-users", "DELETE", kUsers, kDone},
  };
  return all;
}

struct Options {
  std::vector<Kind> kinds = ::kinds();
  long requests = 1000;
  long rounds = 1;
  long in_flight = 1;
  long starts = 0;
  std::string body_file;
  std::string record;
  std::vector<std::vector<std::string>> servers;
};

struct Server {
  std::vector<std::string> command;
  std::string socket;
  pid_t process = -1;
  long private_start = 0;  // kB, as all memory
  long private_first = 0;
  std::vector<double> processor_times = {};  // microseconds for one request, of each round
  std::vector<double> rates = {};            // requests per second
};

[[noreturn]] void fail(const std::string& fault) {
  std::fprintf(stderr, "bench-load: %s\n", fault.c_str());
  std::exit(1);
}

std::string read_file(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

/// The number in kB behind `name` in a file of the process below /proc, 0 where there is none.
long kilobytes(const Server& server, const char* file, const std::string& name) {
  const std::string text = read_file("/proc/" + std::to_string(server.process) + "/" + file);
  const std::size_t at = text.find(name + ":");
  return at == std::string::npos ? 0 : std::strtol(text.c_str() + at + name.size() + 1, nullptr, 10);
}

long private_memory(const Server& server) {
  return kilobytes(server, "smaps_rollup", "Private_Dirty");
}

double processor_seconds(const Server& server) {
  clockid_t clock{};
  timespec used{};
  if (clock_getcpuclockid(server.process, &clock) != 0 || clock_gettime(clock, &used) != 0) {
    fail("the server has ended");
  }
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

/// What a web server sends: the variables that lighttpd sets for a client like curl.
fastcgi::Request to_request(const Kind& kind, long number) {
  fastcgi::Request request{{{"DOCUMENT_ROOT", "/usr/local/httpd/htdocs"},
                            {"GATEWAY_INTERFACE", "CGI/1.1"},
                            {"HTTP_ACCEPT", "*/*"},
                            {"HTTP_HOST", "192.168.1.10"},
                            {"HTTP_USER_AGENT", "curl/7.88.1"},
                            {"QUERY_STRING", ""},
                            {"REDIRECT_STATUS", "200"},
                            {"REMOTE_ADDR", "192.168.1.50"},
                            {"REMOTE_PORT", "51234"},
                            {"REQUEST_METHOD", kind.method},
                            {"REQUEST_SCHEME", "http"},
                            {"REQUEST_URI", kind.uri},
                            {"SCRIPT_FILENAME", "/usr/local/httpd/htdocs" + kind.uri},
                            {"SCRIPT_NAME", kind.uri},
                            {"SERVER_ADDR", "192.168.1.10"},
                            {"SERVER_NAME", "192.168.1.10"},
                            {"SERVER_PORT", "80"},
                            {"SERVER_PROTOCOL", "HTTP/1.1"},
                            {"SERVER_SOFTWARE", "lighttpd/1.4.69"}},
                           kind.body};
  if (kind.name != "401") request.variables["HTTP_AUTHORIZATION"] = "Basic YWRtaW46YWRtaW4=";
  if (const std::size_t at = request.body.find("{n}"); at != std::string::npos) {
    request.body.replace(at, 3, std::to_string(1000000 + number));
  }
  request.variables["CONTENT_LENGTH"] = std::to_string(request.body.size());
  return request;
}

fastcgi::Connection send(const Server& server, const Kind& kind) {
  static long number = 0;
  for (int i = 0; i < kind.messages; ++i) {
    // The reply is in the queue before the service looks for it: no daemon could be faster.
    camera::Message reply;
    reply.type = server.process;
    if (!camera::send_reply(reply)) fail("the reply queue is full");
  }
  fastcgi::Connection connection(server.socket);
  if (!connection.ok()) fail("the server's socket does not answer");
  connection.send(to_request(kind, number++));
  return connection;
}

void receive(const fastcgi::Connection& connection, const Kind& kind, const std::string& record) {
  const fastcgi::Answer answer = connection.receive();
  if (!answer.ended) fail(kind.name + ": the answer was cut off");
  if (answer.out.find(kind.expected) == std::string::npos) fail(kind.name + ": wrong answer: " + answer.out);
  for (int i = 0; i < kind.messages; ++i) {
    if (!camera::receive_message()) fail(kind.name + ": a message to the daemons is missing");
  }
  if (!record.empty()) std::ofstream(record + "/" + kind.name, std::ios::binary) << answer.out;
}

/// Sends the `count` requests from number `first` on, the kinds in turn.
void drive(const Server& server, const Options& options, long first, long count) {
  const auto all = static_cast<long>(options.kinds.size());
  std::deque<std::pair<fastcgi::Connection, long>> open;
  for (long i = first; i < first + count || !open.empty(); ++i) {
    const auto kind_of = [&](long number) -> const Kind& {
      return options.kinds[static_cast<std::size_t>(number % all)];
    };
    if (i < first + count) open.emplace_back(send(server, kind_of(i)), i);
    if (static_cast<long>(open.size()) < options.in_flight && i < first + count) continue;
    const long number = open.front().second;
    receive(open.front().first, kind_of(number), number < all ? options.record : "");
    open.pop_front();
  }
}

std::string socket_path(std::size_t server) {
  return "/usr/local/" + std::to_string(server) + ".socket";
}

void start(Server& server) {
  const camera::Descriptor listener = camera::listen_at(server.socket);
  if (listener.number < 0) fail("cannot listen at " + server.socket);
  std::vector<char*> arguments;
  for (std::string& word : server.command) {
    arguments.push_back(word.data());
    // Pages of a program just built would count as dirty memory until they are on the disk.
    const int file = open(word.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) continue;
    fsync(file);
    close(file);
  }
  arguments.push_back(nullptr);
  std::fflush(stdout);  // or the child would print it, too
  server.process = fork();
  if (server.process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // none outlives a failure
    dup2(listener.number, STDIN_FILENO);
    if (std::freopen("/dev/null", "w", stdout) == nullptr) _exit(126);
    execvp(arguments[0], arguments.data());
    std::fprintf(stderr, "bench-load: cannot run %s\n", arguments[0]);
    _exit(127);
  }
}

/// Waits until the server sleeps, as it does when it waits for a request.
void wait_until_idle(const Server& server) {
  for (int calm = 0; calm < 5;) {
    usleep(10000);
    const std::string state = read_file("/proc/" + std::to_string(server.process) + "/stat");
    const std::size_t at = state.rfind(") ");
    if (at == std::string::npos) fail("the server has ended");
    if (state[at + 2] == 'Z') fail("the server has ended");
    calm = state[at + 2] == 'S' ? calm + 1 : 0;
  }
}

void stop(const Server& server) {
  kill(server.process, SIGTERM);
  int status = 0;
  waitpid(server.process, &status, 0);
  if (WIFEXITED(status) ? WEXITSTATUS(status) != 0 : WTERMSIG(status) != SIGTERM) {
    fail(server.command.back() + " ended with status " + std::to_string(status));
  }
}

void measure_starts(const Options& options) {
  for (const std::vector<std::string>& command : options.servers) {
    std::vector<double> times;
    for (long i = 0; i < options.starts; ++i) {
      Server server{command, socket_path(0)};
      const auto begin = Clock::now();
      start(server);
      drive(server, options, 0, 1);
      times.push_back(seconds_since(begin) * 1e6);
      stop(server);
    }
    std::printf("server %s\nfirst_answer_us %.0f\n", command.back().c_str(), median(times));
  }
}

void measure_rounds(Server& server, const Options& options, long round) {
  const long count = options.requests / options.rounds;
  const double used_before = processor_seconds(server);
  const auto begin = Clock::now();
  drive(server, options, 1 + round * count, count);
  const auto requests = static_cast<double>(count);
  server.rates.push_back(requests / seconds_since(begin));
  server.processor_times.push_back((processor_seconds(server) - used_before) * 1e6 / requests);
}

void measure(const Options& options) {
  std::vector<Server> servers;
  for (const std::vector<std::string>& command : options.servers) {
    Server& server = servers.emplace_back(Server{command, socket_path(servers.size())});
    start(server);
    wait_until_idle(server);
    server.private_start = private_memory(server);
    drive(server, options, 0, 1);
    wait_until_idle(server);
    server.private_first = private_memory(server);
  }
  for (long round = 0; round < options.rounds; ++round) {
    for (Server& server : servers)
      measure_rounds(server, options, round);
  }
  for (const Server& server : servers) {
    wait_until_idle(server);
    std::printf("server %s\nprivate_start_kb %ld\nprivate_first_kb %ld\nprivate_end_kb %ld\npeak_kb %ld\n",
                server.command.back().c_str(), server.private_start, server.private_first,
                private_memory(server), kilobytes(server, "status", "VmHWM"));
    std::printf("cpu_us %.2f\nper_second %.0f\n",
                *std::min_element(server.processor_times.begin(), server.processor_times.end()),
                *std::max_element(server.rates.begin(), server.rates.end()));
    stop(server);
  }
}

/// The number that an option is given; anything else ends the program.
long to_number(const std::string& option, const std::string& text) {
  char* end = nullptr;
  const long number = std::strtol(text.c_str(), &end, 10);
  if (end == text.c_str() || *end != '\0' || number < 1) fail(option + " needs a number from 1 on");
  return number;
}

std::vector<Kind> kind_named(const std::string& name) {
  if (name == "mix") return kinds();
  for (const Kind& kind : kinds()) {
    if (kind.name == name) return {kind};
  }
  fail("no kind is called " + name + "; --list shows them");
}

void take_option(const std::string& option, const std::string& value, Options& options) {
  if (option == "--kind") {
    options.kinds = kind_named(value);
  } else if (option == "--request") {
    const std::size_t blank = value.find(' ');
    if (blank == std::string::npos) fail("--request needs a method, a blank and a URI");
    options.kinds = {{"request", value.substr(0, blank), value.substr(blank + 1), "Content-"}};
  } else if (option == "--body") {
    options.body_file = value;
  } else if (option == "--requests") {
    options.requests = to_number(option, value);
  } else if (option == "--rounds") {
    options.rounds = to_number(option, value);
  } else if (option == "--in-flight") {
    options.in_flight = to_number(option, value);
  } else if (option == "--starts") {
    options.starts = to_number(option, value);
  } else if (option == "--record") {
    options.record = value;
  } else {
    fail("no option is called " + option + "; --help shows them");
  }
}

Options read_options(const std::vector<std::string>& arguments) {
  Options options;
  std::size_t i = 0;
  for (; i < arguments.size() && arguments[i] != "--"; i += 2) {
    if (i + 1 == arguments.size()) fail(arguments[i] + " needs a value");
    take_option(arguments[i], arguments[i + 1], options);
  }
  for (; i < arguments.size(); ++i) {
    if (arguments[i] == "--") {
      options.servers.emplace_back();
    } else {
      options.servers.back().push_back(arguments[i]);
    }
  }
  if (!options.body_file.empty()) {
    if (options.kinds.front().name != "request") fail("--body needs --request");
    options.kinds.front().body = read_file(options.body_file);
    if (options.kinds.front().body.empty()) fail("nothing to read in " + options.body_file);
  }
  if (options.servers.empty()) fail("no server given; --help shows how");
  for (const std::vector<std::string>& command : options.servers) {
    if (command.empty()) fail("no server behind --");
  }
  if (options.in_flight > 3) fail("--in-flight needs a number from 1 to 3");
  if (options.requests < options.rounds) fail("there are fewer requests than rounds");
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (!arguments.empty() && arguments[0] == "--help") {
    std::fputs(kHelp, stdout);
    return 0;
  }
  if (!arguments.empty() && arguments[0] == "--list") {
    for (const Kind& kind : kinds())
      std::printf("%s\n", kind.name.c_str());
    return 0;
  }
  const Options options = read_options(arguments);
  // Waits for processes that a server leaves running, such as a tracer that sums up.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  std::string fault = camera::enter_private_device();
  if (!fault.empty()) fail(fault);
  if (options.kinds.size() == 1) fault = camera::execute(options.kinds.front().rows);
  if (!fault.empty()) fail(fault);
  if (options.starts > 0) {
    measure_starts(options);
  } else {
    measure(options);
  }
  while (wait(nullptr) > 0) {
  }
  return 0;
}
