// The simulated camera's pure parts: texts in messages, and rules on its command line.
#include <gtest/gtest.h>

#include <string>

#include "simulator/daemons.h"
#include "simulator/message.h"

namespace {

using camera::AnswerKind;

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
