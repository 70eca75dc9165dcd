// The record of what happens in the camera: each request with the rows it changed, the messages it caused and
// what the service printed, and every other event. It is shown on the terminal and kept for the page and for
// test programs.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "simulator/front/relay.h"

namespace camera {

class Journal {
 public:
  /// Each line on the terminal starts with the prefix.
  explicit Journal(std::string prefix) : prefix_(std::move(prefix)) {}

  /// Until end_request, messages and printed texts belong to this request. Its entry appears when it has
  /// ended.
  void begin_request(const Exchange& exchange);
  void end_request(const Exchange& exchange, const std::vector<std::string>& changes);

  /// A request that does not reach the service, and why.
  void refuse_request(const Exchange& exchange, const std::string& reason);

  /// A message to the daemons or the daemons' answer, in words.
  void message(const std::string& words);
  /// Any other event, with its details.
  void event(const std::string& words, const std::vector<std::string>& details = {});
  /// What the service wrote on its standard output: a document with its header lines, or a diagnostic line.
  void printed(const std::string& text);

  /// The entries with ids above `since` in whose texts `part` occurs, as a JSON array with the oldest first.
  [[nodiscard]] std::string json(std::uint64_t since, const std::string& part = "") const;
  /// The id of the newest entry. Ids count from 1.
  [[nodiscard]] std::uint64_t last() const { return last_; }

 private:
  struct Entry {
    std::uint64_t id = 0;
    std::string time;  // of the machine, not of the camera
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
  [[nodiscard]] static std::string title(const Entry& entry);
  [[nodiscard]] static bool holds(const Entry& entry, const std::string& part);
  void finish(Entry entry);

  std::string prefix_;
  std::string printed_;  // by the current request
  Entry open_;
  bool in_request_ = false;
  std::deque<Entry> entries_;
  std::uint64_t last_ = 0;
};

/// "USER:PASSWORD" of an Authorization header's value; empty when its scheme is not Basic.
[[nodiscard]] std::string basic_credentials(const std::string& authorization);

}  // namespace camera
