#include "diagnostics/TGException.h"

#include <stdexcept>

#include "tests/diagnostics/LogFixture.h"

namespace {

using foundation::Exception;
using testing::ElementsAre;
using testing::IsEmpty;

class TGExceptionTest : public LogFixture {
 protected:
  void SetUp() override { TGLog::createNewLog("Quillmend"); }
};

TEST_F(TGExceptionTest, AnExceptionIsLoggedPrintedAndAnswered) {
  const std::string text =
      TGException::logException(Exception("NSRangeException", "out of bounds"), "-[TGAppController stopAll]");
  EXPECT_EQ(text, "Exception in -[TGAppController stopAll]. NSRangeException - out of bounds.");
  EXPECT_THAT(messages(), ElementsAre(text));
  EXPECT_EQ(entries(generation(1)), entry(text));
}

TEST_F(TGExceptionTest, TheTextIsFormattedASecondTimeForTheLogOnly) {
  const std::string text = TGException::logException(Exception("Name", "100%% of %@ %s"), "method");
  EXPECT_EQ(text, "Exception in method. Name - 100%% of %@ %s.");
  EXPECT_THAT(messages(), ElementsAre(text));
  EXPECT_EQ(entries(generation(1)), entry("Exception in method. Name - 100% of %@ %s."));
}

TEST_F(TGExceptionTest, OnlyAPortTimeoutIsATimeout) {
  EXPECT_TRUE(TGException::didTimeout(Exception("NSPortTimeoutException", "")));
  EXPECT_FALSE(TGException::didTimeout(Exception("NSPortTimeoutException ", "")));
  EXPECT_FALSE(TGException::didTimeout(Exception("NSInvalidSendPortException", "time-out")));
}

TEST_F(TGExceptionTest, GuardedWorkThatEndsIsNotMentioned) {
  bool ran = false;
  EXPECT_TRUE(guarded("method", [&] { ran = true; }));
  EXPECT_TRUE(ran);
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGExceptionTest, GuardedWorkLetsNoExceptionOut) {
  EXPECT_FALSE(guarded("+[A b]", [] { throw Exception("Name", "reason"); }));
  EXPECT_FALSE(guarded("+[A b]", [] { throw std::runtime_error("from the library"); }));
  EXPECT_THAT(messages(), ElementsAre("Exception in +[A b]. Name - reason.",
                                      "Exception in +[A b]. NSGenericException - from the library."));
}

}  // namespace
