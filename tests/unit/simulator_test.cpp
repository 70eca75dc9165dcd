// The simulated camera's pure parts: what a person reads about a message, and rules on its command line.
#include <gtest/gtest.h>

#include <string>

#include "simulator/daemons.h"
#include "simulator/message.h"

namespace {

using camera::AnswerKind;

TEST(SimulatedCamera, DescribesMessages) {
  camera::Message message;
  const auto expect_described = [&message](int command, const std::string& words) {
    camera::put_integer(message, 4, command);
    EXPECT_EQ(camera::describe(message), "command " + std::to_string(command) + ": " + words);
  };
  expect_described(2, "encoder settings changed, Slave stream");
  camera::put_integer(message, 16, 1);
  expect_described(2, "encoder settings changed, Master stream");
  camera::put_integer(message, 12, -1);
  expect_described(1, "picture settings changed, video source -1");
  const std::string server(127, 'n');  // fills its place
  camera::put_text(message, 16, server);
  for (std::size_t i = 0; i < 7; ++i)
    camera::put_integer(message, 144 + 4 * i, static_cast<int>(i) + 11);
  const std::string time = "0012-13-14 15:16:17, NTP server " + server + ", every 11 min";
  expect_described(6, "set the clock manually to " + time);
  camera::put_integer(message, 12, 2);
  expect_described(6, "keep the clock by NTP, now " + time);
}

TEST(SimulatedCamera, KeepsTextsWithinTheRecord) {
  camera::Message message;
  camera::put_text(message, 12, std::string(5000, 'x'));
  EXPECT_EQ(camera::text_at(message, 12, 5000), std::string(4103, 'x'));
  message.body.fill('y');  // no zero byte to the end
  EXPECT_EQ(camera::text_at(message, 4000, 256), std::string(116, 'y'));
}

TEST(SimulatedCamera, ReadsAnswerRules) {
  const auto expect_rule = [](const char* text, int command, AnswerKind kind, int seconds) {
    const auto rule = camera::parse_answer_rule(text).value_or(camera::AnswerRule{-1});
    EXPECT_TRUE(rule.command == command && rule.kind == kind && rule.delay.count() == seconds) << text;
  };
  expect_rule("6=ok", 6, AnswerKind::kOk, 0);
  expect_rule("31=busy", 31, AnswerKind::kBusy, 0);
  expect_rule("3=failed", 3, AnswerKind::kFailed, 0);
  expect_rule("8=never", 8, AnswerKind::kNever, 0);
  expect_rule("10=late", 10, AnswerKind::kLate, 6);
  expect_rule("10=late:86400", 10, AnswerKind::kLate, 86400);
  for (const char* text : {"", "6", "6=", "=busy", "6 =busy", "-1=busy", "99999999999=busy", "6=busyx",
                           "6=busy:3", "6=late:", "6=late:-1", "6=late:1.5", "6=late:86401"})
    EXPECT_FALSE(camera::parse_answer_rule(text)) << text;
}

}  // namespace
