// The control messages that the service and the camera's daemons exchange over two System V message queues,
// as the daemons see them. Offsets count from the start of the record as it is on the camera, where the type
// word has 4 bytes: 0 type, 4 command, 8 result, 12 to 4115 payload.
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

constexpr std::int32_t kResultDone = 0;
constexpr std::int32_t kResultBusy = 1;
constexpr std::int32_t kResultFailed = 2;

struct Message {
  long type =
      0;  ///< the sender's process id; the kernel's interface has a long here, 8 bytes on 64-bit machines
  std::array<unsigned char, 4112> body{};  ///< the record behind its type word
};

/// The 32-bit little-endian number at an offset of 4 to 4112.
[[nodiscard]] std::int32_t integer_at(const Message& message, std::size_t offset);
void put_integer(Message& message, std::size_t offset, std::int32_t value);

/// The zero-terminated text at an offset of at least 4, of at most size characters.
[[nodiscard]] std::string text_at(const Message& message, std::size_t offset, std::size_t size = 256);
/// Stores the text, cut where the record ends, and a zero byte.
void put_text(Message& message, std::size_t offset, std::string_view text);

[[nodiscard]] inline std::int32_t command_of(const Message& message) {
  return integer_at(message, 4);
}

/// The next message on queue 1, for which it waits so long at most; none waiting: no message.
[[nodiscard]] std::optional<Message> receive_message(
    std::chrono::milliseconds wait = std::chrono::milliseconds(0));

/// Puts a message on queue 2 as it is. False when the queue is full or gone.
[[nodiscard]] bool send_reply(const Message& reply);

/// The reply to a message: its type and command, the result, an otherwise empty payload.
[[nodiscard]] Message reply_to(const Message& message, std::int32_t result);

/// A message in words with its fields: "command 7: time zone Africa/Algiers".
[[nodiscard]] std::string describe(const Message& message);

/// Removes both queues where they exist and creates them empty. Returns an empty text or the fault.
[[nodiscard]] std::string reset_queues();

}  // namespace camera
