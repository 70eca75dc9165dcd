#include "core/control_queue.h"

#include <fcgi_stdio.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/sleep.h"
#include "core/stop.h"

namespace psia {

namespace {

constexpr std::size_t kTypeSize = 4;  // of the record as the daemons see it
constexpr std::size_t kCommandOffset = 4;
constexpr std::size_t kResultOffset = 8;
constexpr int kPollMilliseconds = 100;

enum Result { kDone = 0, kBusy = 1, kFailed = 2 };

/// The id of an existing queue, or -1 when the service is told to stop before there is one.
int find_queue(key_t key) {
  while (!stop_requested()) {
    const int queue = msgget(key, 0666);
    if (queue >= 0) return queue;
    sleep(1);
  }
  return -1;
}

void drain(int queue) {
  msqid_ds state{};
  if (msgctl(queue, IPC_STAT, &state) != 0) return;
  struct {
    long type;
    std::array<char, 12> text;
  } discarded{};
  for (msgqnum_t left = state.msg_qnum; left > 0; --left) {
    (void)msgrcv(queue, &discarded, discarded.text.size(), 0, IPC_NOWAIT | MSG_NOERROR);
  }
}

}  // namespace

ControlMessage::ControlMessage(const CommandRow& command) : seconds_(command.seconds) {
  put_int(kCommandOffset, command.number);
}

void ControlMessage::put_int(std::size_t offset, std::int32_t value) {
  auto word = static_cast<std::uint32_t>(value);
  for (std::size_t i = 0; i < 4; ++i) {
    record_.text[offset - kTypeSize + i] = static_cast<char>(static_cast<unsigned char>(word));
    word >>= 8U;
  }
}

void ControlMessage::put_text(std::size_t offset, std::size_t size, const char* text) {
  std::memcpy(&record_.text[offset - kTypeSize], text, std::min(std::strlen(text), size - 1));
}

std::int32_t ControlMessage::int_at(std::size_t offset) const {
  std::uint32_t word = 0;
  for (std::size_t i = 4; i-- > 0;) {
    word = word << 8U | static_cast<unsigned char>(record_.text[offset - kTypeSize + i]);
  }
  return static_cast<std::int32_t>(word);
}

std::string_view ControlMessage::text_at(std::size_t offset) const {
  const char* start = &record_.text[offset - kTypeSize];
  return {start, strnlen(start, record_.text.size() - (offset - kTypeSize))};
}

ControlQueues::ControlQueues(int requests, int replies)
    : requests_(requests), replies_(replies), process_(getpid()) {}

std::optional<ControlQueues> ControlQueues::open() {
  const int requests = find_queue(kRequestQueueKey);
  if (requests < 0) return std::nullopt;
  drain(requests);
  const int replies = find_queue(kReplyQueueKey);
  if (replies < 0) return std::nullopt;
  drain(replies);
  return ControlQueues(requests, replies);
}

bool ControlQueues::may_send() const {
  return sent_ == 0 || (sent_ < kMaxMessagesPerRequest && !stop_requested());
}

/// Puts the message into the queue. Waits until the daemons make room in a full one, or until a stop.
bool ControlQueues::send_request(const ControlMessage& message) {
  if (msgsnd(requests_, &message.record_, ControlMessage::kTextSize, IPC_NOWAIT) == 0) return true;
  if (errno != EAGAIN) return false;
  while (msgsnd(requests_, &message.record_, ControlMessage::kTextSize, 0) == -1) {
    if (errno != EINTR || stop_requested()) return false;
  }
  return true;
}

int ControlQueues::send_and_wait(ControlMessage& message) {
  message.record_.type = process_;
  if (++sent_ > kMaxMessagesPerRequest) return kFailed;
  if (!send_request(message)) {
    const PeerAwaited awaited(Wait::kAnswerTaken);
    FCGI_perror("Send Message using Message Queue 1 Failed\n");
    return kBusy;
  }
  const int polls = message.seconds_ * 1000 / kPollMilliseconds + 1;
  for (int poll = 0; poll < polls; ++poll) {
    const ssize_t size = msgrcv(replies_, &message.record_, ControlMessage::kTextSize, process_, IPC_NOWAIT);
    if (size != -1) {
      auto& text = message.record_.text;
      std::fill(text.begin() + size, text.end(), '\0');  // behind a reply that is short
      const std::int32_t result = message.int_at(kResultOffset);
      return result == kDone || result == kBusy ? result : kFailed;
    }
    sleep_milliseconds(kPollMilliseconds);
  }
  return kBusy;
}

}  // namespace psia
