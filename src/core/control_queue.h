// Telling the camera's daemons about changes: a control message goes out on one System V message queue, the
// reply is awaited on the other. The daemons create both queues.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace psia {

/// Queue keys: requests to the daemons, and their replies.
inline constexpr int kRequestQueueKey = 1111;
inline constexpr int kReplyQueueKey = 2222;

/// A message's number, and for how many seconds its reply is awaited; a last look follows 0.1 s later.
struct CommandRow {
  std::int32_t number;
  int seconds = 5;
};

/// Every message: what changed, or what a daemon is asked to do.
struct Command {
  static constexpr CommandRow kVideoSource{1};
  static constexpr CommandRow kVideoEncoder{2};
  static constexpr CommandRow kAudio{3};
  static constexpr CommandRow kTime{6};
  static constexpr CommandRow kTimeZone{7};
  static constexpr CommandRow kReboot{8};
  static constexpr CommandRow kFactoryReset{10, 180};
  static constexpr CommandRow kExportConfiguration{11, 180};
  static constexpr CommandRow kAddressing{31};
  static constexpr CommandRow kNameServers{33};
  static constexpr CommandRow kRtspPort{37};
  // Of the camera's other programs: 9, 12 and 22 with 180 s, 23 with 30 s.
};

/// Where a message's own data begins; every offset counts from the start of the record as the daemons see it.
inline constexpr std::size_t kPayloadOffset = 12;

/// The record that passes over both queues: 4116 bytes of little-endian 32-bit words on the device.
///
///     0  message type, the sender's process id
///     4  command code
///     8  result: 0 done, 1 busy, 2 failed
///    12  payload, 4104 bytes
///
/// msgsnd(2) wants the type as a C long, which has 8 bytes on a 64-bit host; what lies behind it is the same
/// everywhere.
class ControlMessage {
 public:
  static constexpr std::size_t kRecordSize = 4116;
  static constexpr std::size_t kTextSize = kRecordSize - 4;  ///< the size given to msgsnd and msgrcv

  /// A message that is all zero but for `command`; its type is put in when it is sent.
  explicit ControlMessage(const CommandRow& command);

  /// Stores a word or a text at `offset` of the record; both must lie within it. A text is truncated to
  /// `size` bytes with its terminating zero.
  void put_int(std::size_t offset, std::int32_t value);
  void put_text(std::size_t offset, std::size_t size, const char* text);

  [[nodiscard]] std::int32_t int_at(std::size_t offset) const;
  /// The text from `offset` to its terminating zero or the end of the record.
  [[nodiscard]] std::string_view text_at(std::size_t offset) const;

 private:
  friend class ControlQueues;

  struct Record {
    long type = 0;
    std::array<char, kTextSize> text{};
  };
  static_assert(sizeof(long) != 4 || sizeof(Record) == kRecordSize);

  Record record_;
  int seconds_;  // as in CommandRow
};

/// Messages that one request may send. Few need more than two, and each can take seconds during which nobody
/// else is served.
inline constexpr int kMaxMessagesPerRequest = 32;

class ControlQueues {
 public:
  /// Looks both queues up and discards what is in them: replies to an earlier run would be taken for new
  /// ones. Waits without limit, a second at a time, until the daemons have created both. Gives nothing only
  /// after a stop.
  [[nodiscard]] static std::optional<ControlQueues> open();

  /// Call before each request: it may send kMaxMessagesPerRequest messages.
  void begin_request() { sent_ = 0; }

  /// Whether a change that ends in a message may be begun: false when this request has sent all it may, and
  /// after its first message also when a stop was requested.
  [[nodiscard]] bool may_send() const;

  /// Sends `message` and waits for the reply, which replaces it. Returns the reply's result: 0 done, 1 busy
  /// (also when the message could not be sent or no reply came in time), 2 failed (also when this request has
  /// sent all it may). Waits for it as long as the message's row in Command says.
  [[nodiscard]] int send_and_wait(ControlMessage& message);

 private:
  ControlQueues(int requests, int replies);
  [[nodiscard]] bool send_request(const ControlMessage& message);

  int requests_;
  int replies_;
  long process_;
  int sent_ = 0;  // by this request
};

}  // namespace psia
