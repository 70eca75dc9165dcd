// What a person is told about the camera: each request with the rows it changed, the messages it caused and
// what the service printed, and whatever happens besides. Shown on the terminal and kept for the page.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "simulator/front/relay.h"

namespace camera {

class Journal {
 public:
  /// Each line on the terminal begins with the prefix.
  explicit Journal(std::string prefix) : prefix_(std::move(prefix)) {}

  /// From here to end_request everything belongs to this request; its lines appear when it has ended.
  void begin_request(const Exchange& exchange);
  void end_request(const Exchange& exchange, const std::vector<std::string>& changes);

  /// A request that the service never saw.
  void refuse_request(const Exchange& exchange);

  /// A message to the daemons, or what became of it, in words.
  void message(const std::string& words);
  /// Anything else that happens, with what belongs to it.
  void event(const std::string& words, const std::vector<std::string>& details = {});
  /// What the service wrote on its standard output: a document with its header lines, or a diagnostic line.
  void printed(const std::string& text);

  /// The entries with numbers above `since` as a JSON array, the oldest first.
  [[nodiscard]] std::string json(std::uint64_t since) const;
  [[nodiscard]] std::uint64_t last() const { return last_; }

 private:
  struct Entry {
    std::uint64_t number = 0;
    std::string time;
    std::string text;  // of an event; a request has an exchange instead
    bool is_request = false;
    std::string user;
    Exchange exchange;
    std::vector<std::string> changes;
    std::vector<std::string> messages;
    std::vector<std::string> printed;  // lines
  };
  void show(const std::string& start, const std::string& text) const;
  [[nodiscard]] static Entry entry_of(const Exchange& exchange);
  void finish(Entry entry);

  std::string prefix_;
  std::string printed_;  // by the request at hand
  Entry open_;
  bool in_request_ = false;
  std::deque<Entry> entries_;
  std::uint64_t last_ = 0;
};

/// User name and password of an Authorization header's value, parted by a colon; empty when it is no basic
/// one.
[[nodiscard]] std::string basic_credentials(const std::string& authorization);

}  // namespace camera
