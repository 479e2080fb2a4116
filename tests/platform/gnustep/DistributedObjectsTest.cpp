#include "platform/macos/DistributedObjects.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>

#include "platform/foundation/Exception.h"
#include "platform/macos/MacClientConnections.h"
#include "tests/platform/gnustep/LiveObjects.h"
#include "tests/support/ChildProcess.h"

namespace platform {
namespace {

using foundation::Exception;
using foundation::PropertyList;
using Seconds = std::chrono::duration<double>;

constexpr const char* kProtocol = "TGCareplexErrorCallbackProtocol";

/// A client in a process of its own, by distributed objects.
class DistributedObjectsTest : public ::testing::Test {
 protected:
  std::unique_ptr<ChildProcess> start(const std::string& role) {
    auto client = std::make_unique<ChildProcess>(std::vector<std::string>{GNUSTEP_PARTNER, role, name});
    EXPECT_EQ(client->line(), "ready");
    return client;
  }

  std::unique_ptr<ClientProxy> proxyOfClient() {
    auto proxy = objects.rootProxy(name);
    if (proxy) proxy->setProtocol(kProtocol);
    return proxy;
  }

  const std::string name = "TGTestClient" + std::to_string(::getpid());
  DistributedObjects objects;
};

std::string nameOfExceptionIn(const std::function<void()>& work) {
  try {
    work();
  } catch (const Exception& exception) {
    return exception.name();
  }
  return "none";
}

Seconds durationOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::steady_clock::now() - start;
}

TEST_F(DistributedObjectsTest, NobodyIsFoundWhereNobodyIsRegistered) {
  EXPECT_TRUE(DistributedObjects::areThere());
  EXPECT_EQ(objects.rootProxy(name), nullptr);
  EXPECT_EQ(objects.rootProxy(""), nullptr);
  EXPECT_EQ(objects.rootProxy("\xFF"), nullptr);
}

TEST_F(DistributedObjectsTest, AClientOfThisSystemIsFoundByTheBackendsConnections) {
  const auto client = start("basic");
  EXPECT_NE(MacClientConnections().rootProxy(name), nullptr);
}

TEST_F(DistributedObjectsTest, MessagesArriveInTheirOrder) {
  const auto client = start("client");
  const auto proxy = proxyOfClient();
  ASSERT_NE(proxy, nullptr);
  proxy->send("incrementRemoteProgress", {});
  proxy->send("postErrorString:", {"Grüße"});
  proxy->send("postFinishedTask", {});
  proxy->send("postDisconnect", {});
  EXPECT_EQ(client->line(), "incrementRemoteProgress");
  EXPECT_EQ(client->line(), "postErrorString: Grüße");
  EXPECT_EQ(client->line(), "postFinishedTask");
  EXPECT_EQ(client->line(), "postDisconnect");
}

TEST_F(DistributedObjectsTest, ArgumentsArriveAsCopiesWithTheirKinds) {
  const auto client = start("client");
  const auto proxy = proxyOfClient();
  ASSERT_NE(proxy, nullptr);
  proxy->send("postErrorString:userInfo:", {"Unable", PropertyList::Dictionary{{"appName", "Quillmend"}}});
  EXPECT_EQ(client->line(), "postErrorString:userInfo: Unable {appName = Quillmend}");
  const PropertyList error = PropertyList::Dictionary{{"code", std::int64_t{1} << 40},
                                                      {"date", foundation::Date::fromUnixTime(978307200.5)},
                                                      {"flags", PropertyList::Array{"a", 2}},
                                                      {"part", 0.5}};
  proxy->send("postError:forApp:", {error, "Quillmend"});
  EXPECT_EQ(client->line(),
            "postError:forApp: {code = q 1099511627776; date = date 0.500; flags = (a, i 2); part = d 0.5} "
            "Quillmend");
}

TEST_F(DistributedObjectsTest, AClientTellsWhatItImplements) {
  const auto client = start("basic");
  const auto proxy = proxyOfClient();
  ASSERT_NE(proxy, nullptr);
  EXPECT_TRUE(proxy->respondsToSelector("postErrorString:"));
  EXPECT_TRUE(proxy->respondsToSelector("incrementRemoteProgress"));
  EXPECT_FALSE(proxy->respondsToSelector("postErrorString:userInfo:"));
  EXPECT_FALSE(proxy->respondsToSelector(""));
}

TEST_F(DistributedObjectsTest, AMessageOutsideOfTheProtocolIsNotWaitedForEither) {
  const auto client = start("client");
  const auto proxy = proxyOfClient();
  ASSERT_NE(proxy, nullptr);
  EXPECT_LT(durationOf([&] { proxy->send("takeYourTime", {}); }), Seconds(1));
  EXPECT_EQ(client->line(), "takeYourTime");
}

TEST_F(DistributedObjectsTest, AClientThatEndsBetweenLookUpAndMessageIsAnException) {
  const auto client = start("client");
  const auto proxy = proxyOfClient();
  ASSERT_NE(proxy, nullptr);
  client->kill();
  EXPECT_NE(nameOfExceptionIn([&] {
              if (!proxy->respondsToSelector("postErrorString:")) return;
              proxy->send("postErrorString:", {"text"});
            }),
            "none");
}

TEST_F(DistributedObjectsTest, AClientThatDoesNotAnswerIsNotWaitedForLongerThanASecond) {
  const auto client = start("deaf");
  EXPECT_LT(durationOf([&] { EXPECT_EQ(objects.rootProxy(name), nullptr); }), Seconds(1.5));
}

TEST_F(DistributedObjectsTest, AMessageThatCannotBeSentIsAnException) {
  const auto client = start("client");
  const auto proxy = proxyOfClient();
  ASSERT_NE(proxy, nullptr);
  EXPECT_EQ(nameOfExceptionIn([&] { proxy->send("postErrorString:", {}); }),
            foundation::kInvalidArgumentException);
  EXPECT_EQ(nameOfExceptionIn([&] { proxy->send("postErrorString:", {"\xFF"}); }),
            foundation::kInvalidArgumentException);
  EXPECT_EQ(nameOfExceptionIn([&] { proxy->setProtocol("TGNoSuchProtocol"); }),
            foundation::kInvalidArgumentException);
  proxy->send("postFinishedTask", {});
  EXPECT_EQ(client->line(), "postFinishedTask");
}

TEST_F(DistributedObjectsTest, ReportsFromAnotherThreadArriveToo) {
  const auto client = start("client");
  std::thread([this] {
    const auto proxy = proxyOfClient();
    ASSERT_NE(proxy, nullptr);
    EXPECT_TRUE(proxy->respondsToSelector("postErrorString:"));
    proxy->send("postErrorString:", {"from elsewhere"});
  }).join();
  EXPECT_EQ(client->line(), "postErrorString: from elsewhere");
}

TEST_F(DistributedObjectsTest, NothingIsLeftBehind) {
  const auto client = start("client");
  EXPECT_EQ(gnustep::leftBehindBy([&] {
              const auto proxy = proxyOfClient();
              static_cast<void>(proxy->respondsToSelector("postErrorString:userInfo:"));
              proxy->send("postErrorString:userInfo:", {"a", PropertyList::Dictionary{{"appName", "b"}}});
              static_cast<void>(objects.rootProxy("TGNobody"));
            }),
            "");
}

}  // namespace
}  // namespace platform
