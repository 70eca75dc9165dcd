// The simulated camera's pure parts: rules on its command line, and what a terminal is shown of other
// people's bytes.
#include <gtest/gtest.h>

#include <string>

#include "simulator/camera/daemons.h"
#include "simulator/tools/text.h"

namespace {

using camera::AnswerKind;

TEST(SimulatedCamera, ReadsAnswerRules) {
  const auto expect_rule = [](const char* text, int command, AnswerKind kind, int seconds) {
    const auto rule = camera::parse_answer_rule(text).value_or(camera::AnswerRule{-1});
    EXPECT_TRUE(rule.command == command && rule.kind == kind && rule.delay.count() == seconds) << text;
  };
  expect_rule("6=ok", 6, AnswerKind::kOk, 0);
  expect_rule("10=late", 10, AnswerKind::kLate, 6);
  expect_rule("10=late:86400", 10, AnswerKind::kLate, 86400);
  for (const char* text :
       {"", "6", "6 =busy", "6=busyx", "6=busy:3", "6=late:", "6=late:-1", "6=late:86401", "99=busy"})
    EXPECT_FALSE(camera::parse_answer_rule(text)) << text;
}

// Escape sequences begin with ESC or with U+009B, which is two bytes in UTF-8 and one elsewhere.
TEST(SimulatedCameraTexts, ReachNoTerminalAsCommands) {
  EXPECT_EQ(camera::harmless("a\x1b[31m\x7f\x01\tb\n"), "a?[31m??\tb?");
  EXPECT_EQ(camera::harmless("a\xc2\x9b"
                             "31m\xc2\x80\xc2\x9f|\x9b|\xff"),
            "a?31m??|?|?");
  EXPECT_EQ(camera::harmless("\xc3\xa9\xc2\xa0\xe2\x82\xac\xf0\x9f\x93\xb7"),
            "\xc3\xa9\xc2\xa0\xe2\x82\xac\xf0\x9f\x93\xb7");
  EXPECT_EQ(camera::harmless("\xc0\x9b\xed\xa0\x80"), "?????");  // too long a form, a surrogate
  EXPECT_EQ(camera::json_text("a\"\\\n\t\x1b\x9b"), "\"a\\\"\\\\\\n\\t??\"");
}

}  // namespace
