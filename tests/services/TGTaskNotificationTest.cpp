#include "services/TGTaskNotification.h"

#include <functional>

#include "tests/services/ServicesTest.h"

namespace {

using foundation::PropertyList;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kPro = "TGProClientCallback";
constexpr const char* kCareplex = "TGCareplexClientCallback";

/// The user information and the error as the fakes write them down.
const std::string kUserInfo = PropertyList(PropertyList::Dictionary{{"appName", "Quillmend"}}).description();

struct Report {
  const char* method;
  std::function<void()> post;
  std::string extendedSelector;  ///< empty where there is none
  std::string extendedMessage;
  std::string basicSelector;
  std::string basicMessage;
};

const std::vector<Report>& reports() {
  static const std::vector<Report> table = {
      {"postDisconnect", &TGTaskNotification::postDisconnect, "", "", "postDisconnect", "postDisconnect"},
      {"postTaskErrorString:", [] { TGTaskNotification::postTaskErrorString("no 100%"); },
       "postErrorString:userInfo:", "postErrorString:userInfo: no 100% " + kUserInfo,
       "postErrorString:", "postErrorString: no 100%"},
      {"postTaskError:", [] { TGTaskNotification::postTaskError("the error"); },
       "postError:forApp:", "postError:forApp: the error Quillmend", "postError:", "postError: the error"},
      {"postTaskFinished", &TGTaskNotification::postTaskFinished, "", "", "postFinishedTask",
       "postFinishedTask"},
      {"postIncrementProgress", &TGTaskNotification::postIncrementProgress, "", "", "incrementRemoteProgress",
       "incrementRemoteProgress"},
  };
  return table;
}

class TGTaskNotificationTest : public ServicesTest {
 protected:
  void listen(const char* name, std::set<std::string> selectors) {
    fakes_.clientConnections.clients[name] = {.selectors = std::move(selectors)};
  }

  std::vector<std::string> callsOf(const Report& report) {
    fakes_.recorder.clear();
    report.post();
    return calls();
  }
};

TEST_F(TGTaskNotificationTest, WithoutAClientNothingHappensNotEvenThePause) {
  for (const Report& report : reports()) {
    EXPECT_THAT(callsOf(report),
                ElementsAre("look up TGProClientCallback", "look up TGCareplexClientCallback"))
        << report.method;
  }
  EXPECT_THAT(messages(), IsEmpty());
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGTaskNotificationTest, TheBasicMessageGoesToAClientThatKnowsNoOther) {
  for (const Report& report : reports()) {
    listen(kPro, {report.basicSelector});
    EXPECT_THAT(callsOf(report),
                ElementsAre("look up TGProClientCallback", "protocol TGCareplexErrorCallbackProtocol",
                            "send " + report.basicMessage, "sleep 15ms", "release proxy"))
        << report.method;
  }
}

TEST_F(TGTaskNotificationTest, TheExtendedMessageIsPreferred) {
  for (const Report& report : reports()) {
    if (report.extendedSelector.empty()) continue;
    listen(kPro, {report.extendedSelector, report.basicSelector});
    EXPECT_THAT(callsOf(report),
                ElementsAre("look up TGProClientCallback", "protocol TGCareplexErrorCallbackProtocol",
                            "send " + report.extendedMessage, "sleep 15ms", "release proxy"))
        << report.method;
  }
}

TEST_F(TGTaskNotificationTest, AClientThatImplementsNothingCostsThePause) {
  listen(kPro, {});
  for (const Report& report : reports()) {
    EXPECT_THAT(callsOf(report),
                ElementsAre("look up TGProClientCallback", "protocol TGCareplexErrorCallbackProtocol",
                            "sleep 15ms", "release proxy"))
        << report.method;
  }
}

TEST_F(TGTaskNotificationTest, OfTwoClientsOnlyTheFirstIsTold) {
  listen(kPro, {"postFinishedTask"});
  listen(kCareplex, {"postFinishedTask"});
  TGTaskNotification::postTaskFinished();
  EXPECT_THAT(fakes_.recorder.only({"look", "send"}),
              ElementsAre("look up TGProClientCallback", "send postFinishedTask"));
}

TEST_F(TGTaskNotificationTest, AFirstClientThatDoesNotUnderstandIsNotPassedOver) {
  listen(kPro, {});
  listen(kCareplex, {"postFinishedTask"});
  TGTaskNotification::postTaskFinished();
  EXPECT_THAT(fakes_.recorder.only({"send"}), IsEmpty());
}

TEST_F(TGTaskNotificationTest, TheSecondNameIsTriedWhenNobodyHasTheFirst) {
  listen(kCareplex, {"postFinishedTask"});
  TGTaskNotification::postTaskFinished();
  EXPECT_THAT(calls(), ElementsAre("look up TGProClientCallback", "look up TGCareplexClientCallback",
                                   "protocol TGCareplexErrorCallbackProtocol", "send postFinishedTask",
                                   "sleep 15ms", "release proxy"));
}

TEST_F(TGTaskNotificationTest, AClientThatDiesBeforeTheMessageIsLoggedAndTheCallerGoesOn) {
  std::vector<std::string> expected;
  for (const Report& report : reports()) {
    fakes_.clientConnections.clients[kPro] = {.selectors = {report.basicSelector}, .diesBeforeSend = true};
    EXPECT_THAT(callsOf(report), ElementsAre("look up TGProClientCallback",
                                             "protocol TGCareplexErrorCallbackProtocol", "release proxy"));
    expected.push_back("Exception in +[TGTaskNotification " + std::string(report.method) +
                       "]. NSInvalidSendPortException - the client is gone.");
  }
  EXPECT_EQ(logEntries(), expected);
  EXPECT_EQ(messages(), expected);
}

}  // namespace
