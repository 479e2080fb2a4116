#include "platform/linux/BusDistributedNotifications.h"

#include "tests/platform/BusFixture.h"
#include "tests/support/Checksum.h"

using foundation::PropertyList;
using platform::BusAgent;
using platform::BusDistributedNotifications;
using testing::HasSubstr;
using namespace std::chrono_literals;

namespace {

constexpr const char* kHead = "/com/vordenworks/DistributedNotifications Posted ";

class BusDistributedNotificationsTest : public BusFixture {
 protected:
  void post(const platform::BusAgentOptions& which, const std::string& name,
            const std::optional<PropertyList>& userInfo = std::nullopt) {
    BusAgent agent(which);
    BusDistributedNotifications(agent).post(name, userInfo);
  }
  [[nodiscard]] platform::BusAgentOptions on(const PrivateBus& bus) const {
    auto which = options();
    which.sessionBus = bus.address();
    return which;
  }
  static PropertyList output(const std::string& text) { return PropertyList::Dictionary{{"output", text}}; }
};

TEST_F(BusDistributedNotificationsTest, AListenerHearsTheNameAndTheUserInformation) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  post(on(bus), "tgQuillmendScanFinished", output("Repair complete."));
  EXPECT_EQ(listener->line(),
            std::string(kHead) + "s:'tgQuillmendScanFinished' s:'' {sv}[output=s:'Repair complete.']");
}

TEST_F(BusDistributedNotificationsTest, NoUserInformationIsAnEmptyDictionary) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  post(on(bus), "tgQuillmendScanFinished");
  EXPECT_EQ(listener->line(), std::string(kHead) + "s:'tgQuillmendScanFinished' s:'' {sv}[]");
}

TEST_F(BusDistributedNotificationsTest, ANameThatNoSignalCouldBearIsHeardToo) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  post(on(bus), "two words-and.more");
  EXPECT_EQ(listener->line(), std::string(kHead) + "s:'two words-and.more' s:'' {sv}[]");
}

TEST_F(BusDistributedNotificationsTest, EachKindOfValueHasItsType) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  post(on(bus), "n",
       PropertyList::Dictionary{{"flag", true},
                                {"whole", -3},
                                {"natural", std::uint64_t{7}},
                                {"real", 0.5},
                                {"date", foundation::Date::fromUnixTime(1293876000)},
                                {"data", PropertyList::Data{std::string("\x00\xFF", 2)}},
                                {"uid", PropertyList::Uid{9}},
                                {"list", PropertyList::Array{"b", PropertyList::Dictionary{{"c", 1}}}}});
  EXPECT_EQ(
      listener->line(),
      std::string(kHead) +
          "s:'n' s:'' {sv}[flag=b:1,whole=x:-3,natural=t:7,real=d:0.500000,date=s:'2011-01-01T10:00:00Z',"
          "data=y[y:0,y:255],uid=t:9,list=v[s:'b',{sv}[c=x:1]]]");
}

TEST_F(BusDistributedNotificationsTest, TextThatIsNotUtf8ArrivesWithReplacementCharacters) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  post(on(bus), "n",
       output(std::string("a\xFF\0\xEF\xBF\xBF"
                          "b",
                          7)));
  EXPECT_THAT(listener->line(), HasSubstr("output=s:'a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"
                                          "b'"));
}

TEST_F(BusDistributedNotificationsTest, FiveMebibytesOfTextArriveWhole) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  std::string text;
  while (text.size() < (5U << 20)) text += "Line " + std::to_string(text.size()) + " of the console\n";
  post(on(bus), "tgQuillmendScanFinished", output(text));
  EXPECT_THAT(listener->line(), HasSubstr("output=s:" + std::to_string(text.size()) + " bytes, checksum " +
                                          std::to_string(checksum(text))));
}

TEST_F(BusDistributedNotificationsTest, DeeplyNestedUserInformationArrives) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  PropertyList value = "innermost";
  for (int level = 0; level < 40; ++level) value = PropertyList::Dictionary{{"k", value}};
  post(on(bus), "n", value);
  EXPECT_THAT(listener->line(), HasSubstr("innermost"));
}

TEST_F(BusDistributedNotificationsTest, NotificationsArriveInTheirOrder) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  BusAgent agent(on(bus));
  BusDistributedNotifications notifications(agent);
  for (int number = 0; number < 20; ++number) notifications.post(std::to_string(number), std::nullopt);
  for (int number = 0; number < 20; ++number) {
    EXPECT_THAT(listener->line(), HasSubstr("s:'" + std::to_string(number) + "'"));
  }
}

TEST_F(BusDistributedNotificationsTest, TheRuntimeFolderHoldsTheBusWhenTheEnvironmentNamesNone) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  post(options(), "n");
  EXPECT_THAT(listener->line(), HasSubstr("s:'n'"));
}

TEST_F(BusDistributedNotificationsTest, TheEnvironmentNamesTheSessionBus) {
  const auto bus = PrivateBus::session(folder);
  auto listener = partner("listen", bus.address());
  ::setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
  auto which = options();
  which.sessionBus.reset();
  which.runtimeFolder = folder.path() + "/absent";
  post(which, "n");
  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  EXPECT_THAT(listener->line(), HasSubstr("s:'n'"));
}

class BusDistributedNotificationsAsRootTest : public BusDistributedNotificationsTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to post on another account's bus";
    system.users.console = "nobody";
  }
};

TEST_F(BusDistributedNotificationsAsRootTest, TheConsoleUserHearsWhatRootPosts) {
  const auto bus = PrivateBus::session(folder, kNobody);
  auto listener = partner("listen", bus.address(), {}, kNobody);
  post(options(), "tgQuillmendScanFinished", output("done"));
  EXPECT_EQ(listener->line(), std::string(kHead) + "s:'tgQuillmendScanFinished' s:'' {sv}[output=s:'done']");
}

TEST_F(BusDistributedNotificationsAsRootTest, RootsOwnSessionBusIsNotUsedForTheConsoleUser) {
  const auto own = PrivateBus::session(folder);
  const auto theirs = PrivateBus::session(folder, kNobody);
  auto ownListener = partner("listen", own.address());
  auto listener = partner("listen", theirs.address(), {}, kNobody);
  post(on(own), "n");
  EXPECT_THAT(listener->line(), HasSubstr("s:'n'"));
  EXPECT_EQ(ownListener->line(200ms), "");
}

TEST_F(BusDistributedNotificationsAsRootTest, AProcessOfTheConsoleUserTellsWhereTheBusIs) {
  const auto bus = PrivateBus::session(folder, kNobody);
  ::setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
  auto listener = partner("listen", bus.address(), {}, kNobody);
  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  auto which = options();
  which.runtimeFolder = folder.path() + "/absent";
  which.searchesProcesses = true;
  post(which, "n");
  EXPECT_THAT(listener->line(), HasSubstr("s:'n'"));
}

TEST_F(BusDistributedNotificationsAsRootTest, WithNobodyAtTheConsoleTheSystemBusCarriesIt) {
  const auto bus = PrivateBus::system(folder);
  auto listener = partner("listen", bus.address(), {}, kNobody);
  for (const std::optional<std::string>& user :
       {std::optional<std::string>(), std::optional<std::string>("loginwindow")}) {
    system.users.console = user;
    post(options(), "n", output("text"));
    EXPECT_EQ(listener->line(), std::string(kHead) + "s:'n' s:'' {sv}[output=s:'text']");
  }
}

TEST_F(BusDistributedNotificationsAsRootTest, WithoutASessionBusOfTheirsTheSystemBusCarriesIt) {
  const auto bus = PrivateBus::system(folder);
  auto listener = partner("listen", bus.address(), {}, kNobody);
  post(options(), "n");
  EXPECT_THAT(listener->line(), HasSubstr("s:'n'"));
}

TEST_F(BusDistributedNotificationsAsRootTest, AChangeOfConsoleUserChangesTheBus) {
  const auto session = PrivateBus::session(folder, kNobody);
  const auto common = PrivateBus::system(folder);
  auto atSession = partner("listen", session.address(), {}, kNobody);
  auto atCommon = partner("listen", common.address(), {}, kNobody);
  BusAgent agent(options());
  BusDistributedNotifications notifications(agent);
  notifications.post("first", std::nullopt);
  EXPECT_THAT(atSession->line(), HasSubstr("s:'first'"));
  system.users.console = std::nullopt;
  notifications.post("second", std::nullopt);
  EXPECT_THAT(atCommon->line(), HasSubstr("s:'second'"));
  EXPECT_EQ(atSession->line(200ms), "");
}

TEST_F(BusDistributedNotificationsAsRootTest, AnAccountThatIsNotThereHasNoBus) {
  const auto common = PrivateBus::system(folder);
  auto listener = partner("listen", common.address());
  system.users.console = "no such account";
  post(options(), "n");
  EXPECT_EQ(listener->line(200ms), "");
}

}  // namespace
