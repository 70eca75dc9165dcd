// The device for a simulated camera on any Linux machine: files, network interface and message queues in
// private namespaces. The unmodified service finds its fixed paths, its eth0 and its queue keys there, and
// the machine itself does not change.
#pragma once

#include <string>

#include "simulator/device/message.h"
#include "simulator/device/network.h"
#include "simulator/device/settings.h"

namespace camera {

constexpr const char* kExchangeDirectory = "/usr/local/httpd/htdocs/Web/updownload";
constexpr const char* kFactoryData = "/dev/mtdblock7";
constexpr const char* kSerialNumber = "QC2040-0007-4242";  ///< of camera 1
/// Holds the seconds by which the camera's clock is ahead of the machine's. libfaketime fixes the name.
constexpr const char* kClockFile = "/etc/faketimerc";

/// What distinguishes one camera from the next of its model. It follows from the camera's number alone, so
/// that it is the same in every run.
struct Identity {
  std::string serial_number;
  std::string device_id;  ///< System.uuid
  std::string hardware_address;
  std::string name;
  std::string address;
  std::string gateway;
  std::string leased_address;  ///< what the simulated network gives this camera when it asks for an address
};

constexpr int kMaxCameraNumber = 100;

/// The identity of the camera with a number from 1 to kMaxCameraNumber.
[[nodiscard]] Identity identity_of(int number);

/// Moves the calling process, which must have one thread, into private namespaces and builds the device
/// there: camera `number` in its factory state, or with the settings that an earlier run left in the
/// directory `keep`. Needs root, or unprivileged user namespaces, where the caller appears as root. Adds the
/// administrator's directories to PATH. Returns an empty text, or what is missing and what to do about it;
/// the process should then end.
[[nodiscard]] std::string enter_private_device(const std::string& keep = "", int number = 1);

/// Whether enter_private_device has got so far that files and network are the device's own. Every function
/// that changes them checks this first, so that a forgotten call cannot change the machine's.
[[nodiscard]] bool inside_private_device();

/// The identity of the device that this process has entered; camera 1's before that.
[[nodiscard]] const Identity& own_identity();
constexpr const char* kOutsideDevice = "enter_private_device has not succeeded in this process";

/// Puts the device back into its factory state: both databases, factory data, resolver file, clock, an empty
/// exchange directory, empty message queues, eth0. Only after enter_private_device. Returns an empty text or
/// the fault.
[[nodiscard]] std::string reset_device();

}  // namespace camera
