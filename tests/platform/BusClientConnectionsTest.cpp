#include "platform/linux/BusClientConnections.h"

#include "platform/foundation/Exception.h"
#include "tests/platform/BusFixture.h"
#include "tests/support/Sanitizers.h"

using foundation::PropertyList;
using platform::BusAgent;
using platform::BusClientConnections;
using namespace std::chrono_literals;

namespace {

constexpr const char* kProtocol = "TGCareplexErrorCallbackProtocol";

TEST(BusMethodName, EachKeywordAfterTheFirstGetsACapitalLetter) {
  EXPECT_EQ(platform::busMethodName("postDisconnect"), "postDisconnect");
  EXPECT_EQ(platform::busMethodName("postErrorString:"), "postErrorString");
  EXPECT_EQ(platform::busMethodName("postErrorString:userInfo:"), "postErrorStringUserInfo");
  EXPECT_EQ(platform::busMethodName("postError:forApp:"), "postErrorForApp");
  EXPECT_EQ(platform::busMethodName(""), "");
}

class BusClientConnectionsTest : public BusFixture {
 protected:
  [[nodiscard]] std::unique_ptr<ChildProcess> client(const std::string& name,
                                                     std::vector<std::string> methods) {
    methods.insert(methods.begin(), "com.vordenworks." + name);
    return partner("client", bus.address(), methods);
  }
  [[nodiscard]] std::unique_ptr<platform::ClientProxy> proxyOf(const std::string& name) {
    auto proxy = connections.rootProxy(name);
    if (proxy) proxy->setProtocol(kProtocol);
    return proxy;
  }
  /// The name of the exception that the work throws; "" for none.
  static std::string thrown(const std::function<void()>& work) {
    try {
      work();
    } catch (const foundation::Exception& exception) {
      return exception.name();
    }
    return "";
  }

  PrivateBus bus = PrivateBus::session(folder);
  BusAgent agent{options()};
  BusClientConnections connections{agent};
};

TEST_F(BusClientConnectionsTest, NobodyUnderTheNameIsNoProxy) {
  EXPECT_EQ(connections.rootProxy("TGProClientCallback"), nullptr);
}

TEST_F(BusClientConnectionsTest, ANameThatNoBusNameCanHoldIsNoProxy) {
  for (const char* name : {"", "a b", "1st", "x.y", "../x", "\xFF"}) {
    EXPECT_EQ(connections.rootProxy(name), nullptr) << name;
  }
}

TEST_F(BusClientConnectionsTest, AMessageArrivesWithItsArgumentsAndWantsNoReply) {
  auto listening = client("TGProClientCallback", {"postErrorStringUserInfo:sa{sv}", "postFinishedTask:"});
  const auto proxy = proxyOf("TGProClientCallback");
  ASSERT_TRUE(proxy);
  proxy->send("postErrorString:userInfo:",
              {"Unable to quit", PropertyList::Dictionary{{"appName", "Quillmend"}}});
  proxy->send("postFinishedTask", {});
  EXPECT_EQ(listening->line(),
            "postErrorStringUserInfo s:'Unable to quit' {sv}[appName=s:'Quillmend'] no reply");
  EXPECT_EQ(listening->line(), "postFinishedTask no reply");
}

TEST_F(BusClientConnectionsTest, WithTwoClientsEachNameReachesItsOwn) {
  auto first = client("TGProClientCallback", {"postErrorString:s"});
  auto second = client("TGCareplexClientCallback", {"postErrorString:s"});
  proxyOf("TGProClientCallback")->send("postErrorString:", {"to the first"});
  EXPECT_EQ(first->line(), "postErrorString s:'to the first' no reply");
  EXPECT_EQ(second->line(200ms), "");
  proxyOf("TGCareplexClientCallback")->send("postErrorString:", {"to the second"});
  EXPECT_EQ(second->line(), "postErrorString s:'to the second' no reply");
}

TEST_F(BusClientConnectionsTest, AClientRespondsToWhatItImplementsAndToNothingElse) {
  auto listening = client("TGProClientCallback", {"postErrorString:s"});
  const auto proxy = proxyOf("TGProClientCallback");
  EXPECT_TRUE(proxy->respondsToSelector("postErrorString:"));
  EXPECT_FALSE(proxy->respondsToSelector("postErrorString:userInfo:"));
  EXPECT_FALSE(proxy->respondsToSelector("Introspect"));
  proxy->setProtocol("AnotherProtocol");
  EXPECT_FALSE(proxy->respondsToSelector("postErrorString:"));
}

TEST_F(BusClientConnectionsTest, AClientWithoutTheObjectRespondsToNothing) {
  auto listening = partner("server", bus.address(), {"stay"});
  auto bare = client("TGProClientCallback", {});
  EXPECT_FALSE(proxyOf("TGProClientCallback")->respondsToSelector("postErrorString:"));
}

TEST_F(BusClientConnectionsTest, AClientThatWasKilledBetweenLookUpAndSendThrows) {
  auto listening = client("TGProClientCallback", {"postErrorString:s"});
  const auto proxy = proxyOf("TGProClientCallback");
  ASSERT_TRUE(proxy->respondsToSelector("postErrorString:"));
  listening->kill();
  EXPECT_EQ(thrown([&] { proxy->send("postErrorString:", {"late"}); }), "NSInvalidSendPortException");
  EXPECT_EQ(thrown([&] { static_cast<void>(proxy->respondsToSelector("postErrorString:")); }),
            "NSInvalidSendPortException");
}

TEST_F(BusClientConnectionsTest, AProxyOfAClientThatHasGoneDoesNotReachItsSuccessor) {
  auto listening = client("TGProClientCallback", {"postErrorString:s"});
  const auto proxy = proxyOf("TGProClientCallback");
  listening->kill();
  auto successor = client("TGProClientCallback", {"postErrorString:s"});
  EXPECT_EQ(thrown([&] { proxy->send("postErrorString:", {"late"}); }), "NSInvalidSendPortException");
  EXPECT_EQ(successor->line(200ms), "");
}

TEST_F(BusClientConnectionsTest, AClientThatAnswersNothingIsAskedForOneSecondAtMost) {
  auto deaf = partner("deaf", bus.address(), {"com.vordenworks.TGProClientCallback"});
  const auto proxy = proxyOf("TGProClientCallback");
  ASSERT_TRUE(proxy);
  std::string name;
  const auto took = duration(
      [&] { name = thrown([&] { static_cast<void>(proxy->respondsToSelector("postErrorString:")); }); });
  EXPECT_EQ(name, "NSPortTimeoutException");
  EXPECT_LT(took, 3s);
  EXPECT_LT(duration([&] { proxy->send("postErrorString:", {"never read"}); }), 500ms);
}

TEST_F(BusClientConnectionsTest, AMessageWithoutAProtocolIsRefused) {
  auto listening = client("TGProClientCallback", {"postErrorString:s"});
  const auto proxy = connections.rootProxy("TGProClientCallback");
  EXPECT_EQ(thrown([&] { proxy->send("postErrorString:", {"x"}); }), "NSInvalidArgumentException");
}

/// One under the sanitizer for threads: all of it has to be with the client within the one second of a
/// message.
TEST_F(BusClientConnectionsTest, ATextOfSeveralMebibytesThatIsNotUtf8Arrives) {
  constexpr std::size_t kSize = (support::kIsSanitizedForThreads ? 1UL : 5UL) << 20U;
  auto listening = client("TGProClientCallback", {"postErrorString:s"});
  proxyOf("TGProClientCallback")->send("postErrorString:", {std::string(kSize, 'a') + "\xFF"});
  EXPECT_THAT(listening->line(),
              testing::StartsWith("postErrorString s:" + std::to_string(kSize + 3) + " bytes"));
}

}  // namespace
