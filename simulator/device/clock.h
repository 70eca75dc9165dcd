// The camera's own clock, zone and time since start, without touching the machine's. The clock is
// libfaketime's work, whose file is read at every look at the clock; the time since start is a time
// namespace's.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace camera {

/// Where libfaketime is, or empty: then the camera's clock is always the machine's.
[[nodiscard]] std::string find_clock_library();

/// Seconds by which the camera's clock is ahead of the machine's.
[[nodiscard]] std::int64_t clock_offset();

/// Sets the camera's clock to a moment (seconds since 1970). Returns an empty text or the fault.
[[nodiscard]] std::string set_camera_clock(std::int64_t moment);
/// Lets the camera's clock be the machine's again, as a good NTP server would.
[[nodiscard]] std::string follow_machine_clock();

/// The moment that a local time means in a zone, as mktime tells it. The zone is a TZ text; empty for the
/// camera's own.
[[nodiscard]] std::int64_t moment_of(std::tm local, const std::string& zone);
/// The camera's time now in a zone, as "2024-05-01T10:00:00".
[[nodiscard]] std::string camera_time(const std::string& zone);

/// Makes the zone of that name the one of processes that start from now on. False when there is no such zone
/// file: then it is UTC.
[[nodiscard]] bool take_zone(const std::string& name);

/// Lets the time since start begin anew for processes that start from now on. False when the kernel does not
/// let it: the camera then shows the machine's.
[[nodiscard]] bool restart_uptime();

/// Gives the calling process's environment what a program started from it needs to see the camera's clock.
void use_camera_clock();

}  // namespace camera
