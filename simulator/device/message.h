// The control messages that the service and the camera's daemons exchange over two System V message queues,
// as the daemons see them. Offsets count from the start of the record as it is on the camera, where the type
// word has 4 bytes.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace camera {

constexpr int kRequestQueueKey = 1111;  ///< queue 1: from the service to the daemons
constexpr int kReplyQueueKey = 2222;    ///< queue 2: the daemons' replies

// What the service asks for. Other numbers are unknown to the daemons.
constexpr std::int32_t kPicture = 1;
constexpr std::int32_t kEncoder = 2;
constexpr std::int32_t kAudio = 3;
constexpr std::int32_t kClock = 6;
constexpr std::int32_t kTimeZone = 7;
constexpr std::int32_t kReboot = 8;
constexpr std::int32_t kFactoryReset = 10;
constexpr std::int32_t kExport = 11;
constexpr std::int32_t kAddressing = 31;
constexpr std::int32_t kNameServers = 33;
constexpr std::int32_t kRtspPort = 37;

// Offsets in every record. The payload ends with the record, at 4116.
constexpr std::size_t kCommandOffset = 4;
constexpr std::size_t kResultOffset = 8;
constexpr std::size_t kPayload = 12;

// Offsets in the record of kClock.
constexpr std::size_t kTimeMode = kPayload;  ///< kTimeByNtp, or another number: set by hand
constexpr std::size_t kNtpServer = 16;       ///< 128 bytes of text
constexpr std::size_t kNtpInterval = 144;    ///< minutes
constexpr std::size_t kYear = 148;           ///< each 4 bytes: year, month, day, hour, minute, second

constexpr std::int32_t kTimeByNtp = 2;

constexpr std::int32_t kResultDone = 0;
constexpr std::int32_t kResultBusy = 1;
constexpr std::int32_t kResultFailed = 2;

struct Message {
  /// The sender's process id. The kernel's interface has a long here, 8 bytes on 64-bit machines.
  long type = 0;
  /// The record after its type word.
  std::array<unsigned char, 4112> body{};
};

/// The 32-bit little-endian number at an offset of 4 to 4112.
[[nodiscard]] std::int32_t integer_at(const Message& message, std::size_t offset);
void put_integer(Message& message, std::size_t offset, std::int32_t value);

/// The zero-terminated text at an offset of at least 4, of at most size characters.
[[nodiscard]] std::string text_at(const Message& message, std::size_t offset, std::size_t size = 256);
/// Stores the text, truncated at the end of the record, and a zero byte.
void put_text(Message& message, std::size_t offset, std::string_view text);

[[nodiscard]] inline std::int32_t command_of(const Message& message) {
  return integer_at(message, kCommandOffset);
}

/// The next message on queue 1. Waits at most so long for it; null when none came or the queue is gone.
[[nodiscard]] std::optional<Message> receive_message(
    std::chrono::milliseconds wait = std::chrono::milliseconds(0));

/// Sends a message over queue 2 unchanged, without waiting. False when the queue is full or gone.
[[nodiscard]] bool send_reply(const Message& reply);

/// The reply to a message: its type and command, the result, an otherwise empty payload.
[[nodiscard]] Message reply_to(const Message& message, std::int32_t result);

/// A message in words, with its fields: "command 7: time zone Africa/Algiers".
[[nodiscard]] std::string describe(const Message& message);

/// Removes both queues if they exist and creates empty ones. Returns an empty text or the fault.
[[nodiscard]] std::string reset_queues();

}  // namespace camera
