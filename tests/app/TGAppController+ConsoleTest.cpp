#include "tests/app/ControllerTest.h"

namespace {

class ConsoleTest : public ControllerTest {
 protected:
  void makeWindow() {
    startWithGUI();
    console.recordsCalls = true;
  }
};

}  // namespace

TEST_F(ConsoleTest, TheFirstLineHasNothingBeforeIt) {
  makeWindow();
  controller->insertText("one");
  EXPECT_EQ(recorded(), text({"view select 0+0", "view insert regular 12.0 one", "view color black 0+3",
                              "view scroll to 0+3", "view display"}));
}

TEST_F(ConsoleTest, EveryLaterLineIsPrecededByAnEmptyOne) {
  makeWindow();
  controller->insertText("one");
  mac.recorder.clear();
  controller->insertBoldText("three");
  EXPECT_EQ(recorded(), text({"view select 3+0", "view insert bold 12.0 \n\n", "view insert bold 12.0 three",
                              "view color black 5+5", "view scroll to 5+5", "view display"}));
  EXPECT_EQ(console.text, "one\n\nthree");
}

TEST_F(ConsoleTest, LengthsAreThoseOfCharactersNotOfBytes) {
  makeWindow();
  controller->insertText("\xC3\xA9\xF0\x9F\x99\x82");  // one letter, and one outside the basic plane
  EXPECT_THAT(mac.recorder.lines(), testing::Contains("view color black 0+3"));
}

TEST_F(ConsoleTest, ALineBehindTextBeyondAsciiBeginsWhereThatTextEnds) {
  makeWindow();
  controller->insertText("\xC3\xA9\xF0\x9F\x99\x82");
  mac.recorder.clear();
  controller->insertText("\xC3\xA9!");
  EXPECT_EQ(recorded(),
            text({"view select 3+0", "view insert regular 12.0 \n\n", "view insert regular 12.0 \xC3\xA9!",
                  "view color black 5+2", "view scroll to 5+2", "view display"}));
  EXPECT_EQ(console.text, "\xC3\xA9\xF0\x9F\x99\x82\n\n\xC3\xA9!");
}

TEST_F(ConsoleTest, ErrorLinesAreRedAndNeverBold) {
  startWithGUI();
  controller->insertErrorText("plain");
  controller->insertBoldErrorText("bold");
  EXPECT_EQ(recorded(), text({"console [red] plain", "console [red] bold"}));
}

TEST_F(ConsoleTest, NormalLinesAreBlack) {
  startWithGUI();
  controller->insertText("plain");
  controller->insertBoldText("bold");
  EXPECT_EQ(recorded(), text({"console plain", "console [bold] bold"}));
}

TEST_F(ConsoleTest, AfterClearingTheNextLineIsTheFirst) {
  startWithGUI();
  controller->insertText("one");
  controller->clearErrorText();
  controller->insertText("two");
  EXPECT_EQ(console.text, "two");
}

TEST_F(ConsoleTest, TheWindowKeepsNoOutputAndPrintsNothing) {
  startWithGUI();
  controller->insertText("one");
  EXPECT_EQ(controller->outputString(), std::nullopt);
  EXPECT_EQ(mac.systemConsole.messages(), Lines{});
}

TEST_F(ConsoleTest, WithoutAWindowLinesAreCollectedAndPrinted) {
  startWithoutGUI();
  EXPECT_EQ(controller->outputString(), std::nullopt);
  controller->insertText("A");
  controller->insertBoldErrorText("B");
  EXPECT_EQ(controller->outputString(), "A\n\nB");
  EXPECT_EQ(mac.systemConsole.messages(), (Lines{"A", "B"}));
}

TEST_F(ConsoleTest, WithoutAWindowClearingEmptiesTheOutput) {
  startWithoutGUI();
  controller->clearErrorText();
  EXPECT_EQ(controller->outputString(), std::nullopt);
  controller->insertText("A");
  controller->clearErrorText();
  EXPECT_EQ(controller->outputString(), "");
  controller->insertText("B");
  EXPECT_EQ(controller->outputString(), "B");
}

TEST_F(ConsoleTest, EveryLineIsLoggedAsItStands) {
  startWithoutGUI();
  controller->insertText("100% of %@ and %%");
  EXPECT_EQ(taskLog(), Lines{"100% of %@ and %%"});
  EXPECT_EQ(controller->outputString(), "100% of %@ and %%");
}

TEST_F(ConsoleTest, TheWindowsLinesAreLoggedToo) {
  startWithGUI();
  controller->insertErrorText("broken");
  EXPECT_EQ(windowLog(), Lines{"broken"});
}

TEST_F(ConsoleTest, AnExceptionIsLoggedAndLetOutToNobody) {
  class BrokenView : public fakes::FakeTextView {
   public:
    using FakeTextView::FakeTextView;
    void setNeedsDisplay() override { throw foundation::Exception("NSRangeException", "out of bounds"); }
  };
  BrokenView broken(mac.recorder);
  startWithGUI();
  controller->errorText = &broken;
  controller->insertText("one");
  EXPECT_EQ(windowLog(), (Lines{"one",
                                "Exception in -[TGAppController insertErrorText:color:bold:]. "
                                "NSRangeException - out of bounds."}));
}

TEST_F(ConsoleTest, AnAlertIsASheetWhoseTextIsAFormat) {
  startWithGUI();
  controller->showAlert("50%% of %@");
  EXPECT_EQ(recorded(), text({"sheet Processing complete: 50% of %@"}));
}
