#include "platform/linux/BusFrames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

using foundation::Date;
using foundation::PropertyList;
using namespace platform::bus;
using namespace std::chrono_literals;

namespace {

constexpr const char* kReplacement = "\xEF\xBF\xBD";

std::string bodyOf(const std::string& frame) {
  FrameReader reader(kLongestRequest);
  reader.append(frame);
  return reader.next().value_or("");
}

PropertyList everyKind() {
  return PropertyList::Dictionary{{"text", "a"},
                                  {"flag", true},
                                  {"whole", std::int64_t{-3}},
                                  {"natural", std::uint64_t{7}},
                                  {"real", 0.5},
                                  {"date", Date::fromUnixTime(1293876000)},
                                  {"data", PropertyList::Data{std::string("\x00\xFF", 2)}},
                                  {"uid", PropertyList::Uid{9}},
                                  {"list", PropertyList::Array{"b", PropertyList::Dictionary{{"c", 1}}}},
                                  {"empty", PropertyList::Dictionary{}}};
}

PropertyList nested(int levels) {
  PropertyList value = "innermost";
  for (int level = 0; level < levels; ++level) value = PropertyList::Array{value};
  return value;
}

TEST(BusFrames, ARequestIsReadAsItWasWritten) {
  const Request request{RequestKind::messageClient, 12, 345ms, everyKind()};
  const auto read = decodedRequest(bodyOf(encoded(request)));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->kind, RequestKind::messageClient);
  EXPECT_EQ(read->number, 12U);
  EXPECT_EQ(read->timeLeft, 345ms);
  EXPECT_EQ(read->fields, everyKind());
}

TEST(BusFrames, AReportIsReadAsItWasWritten) {
  const auto read = decodedReport(bodyOf(encoded({ReportKind::answer, 1ULL << 40U, Outcome::gone, ":1.5"})));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->kind, ReportKind::answer);
  EXPECT_EQ(read->number, 1ULL << 40U);
  EXPECT_EQ(read->outcome, Outcome::gone);
  EXPECT_EQ(read->text, ":1.5");
}

TEST(BusFrames, ARequestThatIsCutAnywhereIsNone) {
  const std::string body = bodyOf(encoded(Request{RequestKind::notify, 1, 1ms, everyKind()}));
  for (std::size_t length = 0; length < body.size(); ++length) {
    EXPECT_FALSE(decodedRequest(body.substr(0, length))) << length;
  }
  EXPECT_FALSE(decodedRequest(body + "x"));
}

TEST(BusFrames, ARequestWithAnyByteChangedIsReadOrRefusedButNeverHarmful) {
  const std::string body = bodyOf(encoded(Request{RequestKind::notify, 1, 1ms, everyKind()}));
  int refused = 0;
  for (std::size_t at = 0; at < body.size(); ++at) {
    std::string changed = body;
    changed[at] = static_cast<char>(0xFF);
    if (!decodedRequest(changed)) ++refused;
  }
  EXPECT_GT(refused, 0);
}

TEST(BusFrames, AReportOfAnUnknownKindOrOutcomeOrWithALongTextIsNone) {
  const std::string body = bodyOf(encoded({ReportKind::answer, 1, Outcome::done, ""}));
  ASSERT_TRUE(decodedReport(body));
  for (const char kind : {'\0', '\x04', '\xFF'}) EXPECT_FALSE(decodedReport(kind + body.substr(1)));
  for (const char outcome : {'\0', '\x06'}) EXPECT_FALSE(decodedReport(body.substr(0, 9) + outcome));
  EXPECT_TRUE(decodedReport(body + std::string(255, 'x')));
  EXPECT_FALSE(decodedReport(body + std::string(256, 'x')));
  EXPECT_FALSE(decodedReport(""));
  EXPECT_FALSE(decodedReport(body.substr(0, 5)));
}

TEST(BusFrames, AStreamGivesItsFramesHoweverItArrives) {
  const std::string stream = encoded({ReportKind::answer, 1, Outcome::done, "a"}) +
                             encoded({ReportKind::notificationClicked, 2, Outcome::done, ""});
  FrameReader reader(kLongestReport);
  std::vector<std::uint64_t> numbers;
  for (const char byte : stream) {
    reader.append({&byte, 1});
    while (const auto body = reader.next()) numbers.push_back(decodedReport(*body)->number);
  }
  EXPECT_THAT(numbers, testing::ElementsAre(1, 2));
}

TEST(BusFrames, AFrameThatIsAnnouncedTooLongBreaksTheStream) {
  const std::uint32_t length = kLongestReport + 1;
  std::string bytes(sizeof length, '\0');
  std::memcpy(bytes.data(), &length, sizeof length);
  FrameReader reader(kLongestReport);
  reader.append(bytes);
  EXPECT_FALSE(reader.next());
  EXPECT_TRUE(reader.isBroken());
  reader.append(encoded({ReportKind::answer, 1, Outcome::done, ""}));
  EXPECT_FALSE(reader.next());
}

TEST(BusFrames, WhatLiesDeeperThanTheBusAllowsBecomesText) {
  const Request request{RequestKind::notify, 1, 1ms, nested(40)};
  const auto read = decodedRequest(bodyOf(encoded(request)));
  ASSERT_TRUE(read);
  const PropertyList* value = &read->fields;
  int levels = 0;
  for (; value->as<PropertyList::Array>() != nullptr; ++levels)
    value = &value->as<PropertyList::Array>()->front();
  EXPECT_EQ(levels, 17);
  ASSERT_NE(value->as<std::string>(), nullptr);
  EXPECT_THAT(*value->as<std::string>(), testing::HasSubstr("innermost"));
}

TEST(BusText, WellFormedTextStaysAsItIs) {
  const std::string text = "a \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 \n";
  EXPECT_EQ(busText(text), text);
  EXPECT_EQ(busText(""), "");
}

struct Replaced {
  const char* what;
  std::string text;
  int replacements;
};

TEST(BusText, WhatTheBusRefusesIsReplaced) {
  const Replaced cases[] = {{"a NUL", std::string(1, '\0'), 1},
                            {"a lone continuation", "\x80", 1},
                            {"a cut character", "\xE2\x82", 2},
                            {"an overlong slash", "\xC0\xAF", 2},
                            {"an overlong three bytes", "\xE0\x80\xAF", 3},
                            {"an overlong four bytes", "\xF0\x80\x80\xAF", 4},
                            {"a surrogate", "\xED\xA0\x80", 3},
                            {"beyond the last character", "\xF4\x90\x80\x80", 4},
                            {"an impossible byte", "\xFF", 1},
                            {"the noncharacter U+FFFF", "\xEF\xBF\xBF", 1},
                            {"the noncharacter U+FDD0", "\xEF\xB7\x90", 1},
                            {"the noncharacter U+1FFFE", "\xF0\x9F\xBF\xBE", 1}};
  for (const Replaced& entry : cases) {
    std::string expected = "<";
    for (int count = 0; count < entry.replacements; ++count) expected += kReplacement;
    EXPECT_EQ(busText("<" + entry.text + ">"), expected + ">") << entry.what;
  }
}

TEST(BusText, ATextThatIsTooLongIsCutAtACharacter) {
  const std::string text = std::string((16U << 20) - 1, 'a') + "\xC3\xA9 and more";
  EXPECT_EQ(busText(text), std::string((16U << 20) - 1, 'a'));
}

}  // namespace
