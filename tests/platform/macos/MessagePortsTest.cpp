#include "platform/macos/MessagePorts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "platform/fakes/FakePlatform.h"
#include "platform/foundation/Exception.h"
#include "tests/macsdk/fakes/FakeCoreFoundation.h"
#include "tests/macsdk/fakes/FakeMessagePorts.h"

namespace platform {
namespace {

using foundation::Exception;
using foundation::PropertyList;
using ::testing::ElementsAre;

constexpr const char* kPort = "com.vordenworks.TGProClientCallback";

class MessagePortsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::fakes::resetCoreFoundation();
    ::fakes::resetMessagePorts();
  }
  void TearDown() override { EXPECT_EQ(::fakes::liveObjects(), 0) << "objects were not released"; }

  static std::string nameOfExceptionIn(const std::function<void()>& work) {
    try {
      work();
    } catch (const Exception& exception) {
      return exception.name();
    }
    return "none";
  }

  ::fakes::FakePlatform fake;
  MessagePorts ports;
};

TEST_F(MessagePortsTest, NobodyIsFoundWhereNobodyHasAPort) {
  EXPECT_EQ(ports.rootProxy("TGProClientCallback"), nullptr);
  EXPECT_EQ(ports.rootProxy(""), nullptr);
  EXPECT_EQ(ports.rootProxy("\xFF"), nullptr);
}

TEST_F(MessagePortsTest, AMessageCarriesProtocolSelectorAndArgumentsAndWaitsForNoAnswer) {
  ::fakes::addPort(kPort, {});
  const auto client = ports.rootProxy("TGProClientCallback");
  ASSERT_NE(client, nullptr);
  client->setProtocol("TGCareplexErrorCallbackProtocol");
  client->send("postErrorString:", {"Unable"});
  const std::string list =
      "{\n    arguments = (\n        Unable\n    );\n    protocol = TGCareplexErrorCallbackProtocol;\n"
      "    selector = postErrorString:;\n}";
  EXPECT_THAT(::fakes::takePortMessages(),
              ElementsAre(std::string("2 to ") + kPort + ": " + list + " (0.500000)"));
}

TEST_F(MessagePortsTest, AClientTellsWhatItImplementsWithinASecond) {
  ::fakes::addPort(kPort, {"postErrorString:"});
  const auto client = ports.rootProxy("TGProClientCallback");
  ASSERT_NE(client, nullptr);
  EXPECT_TRUE(client->respondsToSelector("postErrorString:"));
  EXPECT_FALSE(client->respondsToSelector("postErrorString:userInfo:"));
  EXPECT_EQ(::fakes::takePortMessages().front(),
            std::string("1 to ") + kPort + ": postErrorString: (0.500000, 0.500000)");
}

TEST_F(MessagePortsTest, AClientThatIsGoneIsAnInvalidPortAndOneThatIsSlowATimeOut) {
  ::fakes::addPort(kPort, {});
  const auto client = ports.rootProxy("TGProClientCallback");
  ASSERT_NE(client, nullptr);
  ::fakes::setPortStatus(-3);
  EXPECT_EQ(nameOfExceptionIn([&] { client->send("postDisconnect", {}); }),
            foundation::kInvalidSendPortException);
  ::fakes::setPortStatus(kCFMessagePortSendTimeout);
  EXPECT_EQ(nameOfExceptionIn([&] { client->send("postDisconnect", {}); }),
            foundation::kPortTimeoutException);
  ::fakes::setPortStatus(kCFMessagePortReceiveTimeout);
  EXPECT_EQ(nameOfExceptionIn([&] { static_cast<void>(client->respondsToSelector("postDisconnect")); }),
            foundation::kPortTimeoutException);
}

TEST_F(MessagePortsTest, ArgumentsThatAreNoPropertyListAreAnException) {
  ::fakes::addPort(kPort, {});
  const auto client = ports.rootProxy("TGProClientCallback");
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(nameOfExceptionIn([&] { client->send("postErrorString:", {"\xFF"}); }),
            foundation::kInvalidArgumentException);
  EXPECT_THAT(::fakes::takePortMessages(), ElementsAre());
}

TEST_F(MessagePortsTest, EveryObjectThatCannotBeMadeIsAnExceptionOrNoClient) {
  for (int number = 1;; ++number) {
    ::fakes::resetMessagePorts();
    ::fakes::addPort(kPort, {"postErrorString:"});
    ::fakes::failCreation(number);
    if (const auto client = ports.rootProxy("TGProClientCallback")) {
      const std::string name = nameOfExceptionIn([&] {
        static_cast<void>(client->respondsToSelector("postErrorString:"));
        client->send("postErrorString:", {"Unable"});
      });
      EXPECT_THAT(name, ::testing::AnyOf("none", foundation::kInvalidArgumentException));
    }
    if (!::fakes::creationHasFailed()) break;
    ::fakes::resetCoreFoundation();
  }
}

}  // namespace
}  // namespace platform
