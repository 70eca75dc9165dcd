// The camera's own clock, time zone and time since start; the machine's stay as they are. libfaketime gives
// programs the clock: it reads its file each time a program asks for the time. A time namespace gives them
// the time since start.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace camera {

/// The path of libfaketime; empty when it is not installed. The camera's clock is then the machine's.
[[nodiscard]] std::string find_clock_library();

/// Seconds by which the camera's clock is ahead of the machine's; 0 when the file is missing.
[[nodiscard]] std::int64_t clock_offset();

/// Sets the camera's clock to a moment (seconds since 1970). Returns an empty text or the fault.
[[nodiscard]] std::string set_camera_clock(std::int64_t moment);
/// Sets the camera's clock to the machine's, as a good NTP server would. Returns an empty text or the fault.
[[nodiscard]] std::string follow_machine_clock();

/// The moment (seconds since 1970) of a local time in a zone, as mktime gives it. The zone is a TZ text;
/// empty for the camera's own.
[[nodiscard]] std::int64_t moment_of(std::tm local, const std::string& zone);
/// The camera's time now in a zone, as "2024-05-01T10:00:00".
[[nodiscard]] std::string camera_time(const std::string& zone);

/// Makes a zone, by its name below /usr/share/zoneinfo, the zone of processes that start from now on. False
/// when there is no such zone file; the zone is then UTC.
[[nodiscard]] bool take_zone(const std::string& name);

/// Sets the time since start to 0 for processes that start from now on. False when the kernel has no time
/// namespaces; the camera then shows the machine's time since start.
[[nodiscard]] bool restart_uptime();

/// Prepares the environment so that a program that this process executes next sees the camera's clock.
void use_camera_clock();

}  // namespace camera
