#include "simulator/device/message.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace camera {
namespace {

constexpr std::size_t kTypeWord = 4;  // on the camera; Message::body starts after it
constexpr std::size_t kNtpServerSize = 128;
constexpr std::size_t kEncoderStream = 16;  // 1 Master, otherwise Slave

std::string describe_time(const Message& message) {
  const auto field = [&message](std::size_t index) { return integer_at(message, kYear + 4 * index); };
  std::array<char, 96> clock{};
  std::snprintf(clock.data(), clock.size(), "%04d-%02d-%02d %02d:%02d:%02d", field(0), field(1), field(2),
                field(3), field(4), field(5));
  const bool by_ntp = integer_at(message, kTimeMode) == kTimeByNtp;
  return (by_ntp ? "keep the clock by NTP, now " : "set the clock manually to ") + std::string(clock.data()) +
         ", NTP server " + text_at(message, kNtpServer, kNtpServerSize) + ", every " +
         std::to_string(integer_at(message, kNtpInterval)) + " min";
}

std::string describe_command(const Message& message) {
  switch (command_of(message)) {
    case kPicture:
      return "picture settings changed, video source " + std::to_string(integer_at(message, kPayload));
    case kEncoder:
      return std::string("encoder settings changed, ") +
             (integer_at(message, kEncoderStream) == 1 ? "Master" : "Slave") + " stream";
    case kAudio:
      return "audio settings changed";
    case kClock:
      return describe_time(message);
    case kTimeZone:
      return "time zone " + text_at(message, kPayload);
    case kReboot:
      return "reboot";
    case kFactoryReset:
      return "restore the factory settings";
    case kExport:
      return "export the settings";
    case kAddressing:
      return "network addressing changed";
    case kNameServers:
      return "name servers " + text_at(message, kPayload);
    case kRtspPort:
      return "RTSP port changed";
    default:
      return "unknown to the daemons";
  }
}

}  // namespace

std::int32_t integer_at(const Message& message, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;)
    value = value << 8U | message.body.at(offset - kTypeWord + i);
  return static_cast<std::int32_t>(value);
}

void put_integer(Message& message, std::size_t offset, std::int32_t value) {
  for (std::size_t i = 0; i < 4; i++) {
    message.body.at(offset - kTypeWord + i) =
        static_cast<unsigned char>(static_cast<std::uint32_t>(value) >> (8U * i));
  }
}

std::string text_at(const Message& message, std::size_t offset, std::size_t size) {
  const std::size_t start = std::min(offset - kTypeWord, message.body.size());
  const std::size_t end = std::min(start + size, message.body.size());
  std::string text;
  for (std::size_t i = start; i < end && message.body.at(i) != 0; i++) {
    text += static_cast<char>(message.body.at(i));
  }
  return text;
}

void put_text(Message& message, std::size_t offset, std::string_view text) {
  const std::size_t start = offset - kTypeWord;
  const std::size_t length = std::min(text.size(), message.body.size() - start - 1);
  std::memcpy(&message.body.at(start), text.data(), length);
  message.body.at(start + length) = 0;
}

std::optional<Message> receive_message(std::chrono::milliseconds wait) {
  // Polling, because the kernel offers no wait with a timeout on these queues.
  const auto deadline = std::chrono::steady_clock::now() + wait;
  const int queue = msgget(kRequestQueueKey, 0);
  Message message;
  while (msgrcv(queue, &message, message.body.size(), 0, IPC_NOWAIT | MSG_NOERROR) < 0) {
    if (errno == EINTR) continue;
    if (errno != ENOMSG || std::chrono::steady_clock::now() >= deadline) return std::nullopt;
    usleep(2000);
  }
  return message;
}

bool send_reply(const Message& reply) {
  const int queue = msgget(kReplyQueueKey, 0);
  int result = -1;
  do {
    result = msgsnd(queue, &reply, reply.body.size(), IPC_NOWAIT);
  } while (result < 0 && errno == EINTR);
  return result == 0;
}

Message reply_to(const Message& message, std::int32_t result) {
  Message reply;
  reply.type = message.type;
  put_integer(reply, kCommandOffset, command_of(message));
  put_integer(reply, kResultOffset, result);
  return reply;
}

std::string describe(const Message& message) {
  return "command " + std::to_string(command_of(message)) + ": " + describe_command(message);
}

std::string reset_queues() {
  for (const int key : {kRequestQueueKey, kReplyQueueKey}) {
    const int left_over = msgget(key, 0);
    if (left_over >= 0) msgctl(left_over, IPC_RMID, nullptr);
    if (msgget(key, IPC_CREAT | IPC_EXCL | 0666) < 0) {
      return "cannot create message queue " + std::to_string(key) + ": " + std::strerror(errno);
    }
  }
  return "";
}

}  // namespace camera
