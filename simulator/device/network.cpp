#include "simulator/device/network.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

#include "simulator/device/device.h"
#include "simulator/tools/descriptor.h"

namespace camera {
namespace {

// Runs lines of ip commands in one process. Returns an empty text or the command's error message.
std::string run_ip(const std::string& lines) {
  if (!inside_private_device()) return kOutsideDevice;
  const Descriptor input(memfd_create("ip-input", MFD_CLOEXEC));
  const Descriptor output(memfd_create("ip-output", MFD_CLOEXEC));
  if (input.number < 0 || output.number < 0 ||
      write(input.number, lines.data(), lines.size()) != static_cast<ssize_t>(lines.size())) {
    return system_error("Cannot prepare the ip command");
  }
  lseek(input.number, 0, SEEK_SET);

  std::array<std::string, 3> words = {"ip", "-batch", "-"};
  const std::array<char*, 4> arguments = {words[0].data(), words[1].data(), words[2].data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.number, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.number, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.number, STDERR_FILENO);
  pid_t process = 0;
  const int fault = posix_spawnp(&process, "ip", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (fault != 0) return "The ip command is missing: install the package iproute2.";

  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return "";
  std::array<char, 512> said{};
  const ssize_t length = pread(output.number, said.data(), said.size(), 0);
  return "The ip command failed: " +
         std::string(said.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
}

bool is_address(const std::string& text) {
  in_addr address{};
  return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

// The ip commands that give eth0 this addressing; an empty or 0.0.0.0 gateway is none. Empty when a text is
// not an address: clients may store anything in the database.
std::string addressing_commands(const std::string& address, const std::string& mask,
                                const std::string& gateway) {
  const bool has_gateway = !gateway.empty() && gateway != "0.0.0.0";
  if (!is_address(address) || !is_address(mask) || (has_gateway && !is_address(gateway))) return "";
  return "address flush dev eth0 scope global\n"
         "link set eth0 up\n"
         "address add " +
         address + "/" + mask + " broadcast + dev eth0\n" +
         (has_gateway ? "route replace default via " + gateway + " dev eth0\n" : "");
}

}  // namespace

std::string create_interfaces() {
  std::string fault = run_ip(
      "link set lo up\n"
      "link add eth0 type veth peer name eth0peer\n"
      "link set eth0peer up\n"
      "link set eth0 up\n");
  return fault.empty() ? "" : fault + "If the kernel lacks veth interfaces: modprobe veth.";
}

std::string reset_interface() {
  const Identity& own = own_identity();
  return run_ip("link set eth0 address " + own.hardware_address + "\n" +
                addressing_commands(own.address, kSubnetMask, own.gateway));
}

std::string apply_addressing() {
  const auto rows = query("select ConnectionType, IPAddress, SubnetMask, Gateway from Network");
  if (rows.empty()) return "No stored addressing";
  const std::vector<std::string>& stored = rows[0];
  const Identity& own = own_identity();
  const std::string commands = stored[0] == "1"
                                   ? addressing_commands(own.leased_address, kSubnetMask, own.gateway)
                                   : addressing_commands(stored[1], stored[2], stored[3]);
  return commands.empty() ? "The stored address, mask or gateway is not valid" : run_ip(commands);
}

std::string write_resolver(const std::string& primary, const std::string& secondary) {
  if (!inside_private_device()) return kOutsideDevice;
  std::ofstream file(kResolverFile, std::ios::binary | std::ios::trunc);
  for (const std::string& server : {primary, secondary}) {
    if (!server.empty()) file << "nameserver " << server << "\n";
  }
  file << "search " << kSearchDomain << "\n";
  file.close();
  return file.fail() ? system_error("Cannot write the resolver file") : "";
}

std::string live_address() {
  const Descriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  std::string live;
  for (const int question : {SIOCGIFADDR, SIOCGIFNETMASK}) {
    ifreq request{};
    std::strcpy(request.ifr_name, "eth0");
    if (ioctl(control.number, static_cast<unsigned int>(question), &request) != 0) return "";
    sockaddr_in answer{};
    std::memcpy(&answer, &request.ifr_addr, sizeof answer);
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &answer.sin_addr, text.data(), text.size());
    live += (live.empty() ? "" : " ") + std::string(text.data());
  }
  return live;
}

}  // namespace camera
