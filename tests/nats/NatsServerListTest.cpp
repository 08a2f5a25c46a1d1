// Server lists: a URL with several servers separated by ',' (with or without blanks)
// connects to whichever listed server answers; an empty entry is refused; the texts show
// the list without its credentials.
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <connector/nats/DisplayUrl.hpp>

#include "NatsFixtures.hpp"
#include "support/ExpectThrow.hpp"

namespace {

using connector::Address;
using connector::nats::NatsLink;
using connector::nats::NatsListener;
using connector::testing::NatsServerProcess;

class NatsServerListTest : public natstest::NatsSuite {
 protected:
  // A loopback URL where no server listens: a server's port, the server stopped.
  static std::string deadUrl() {
    static const std::string url = [] {
      NatsServerProcess gone;
      gone.start();
      gone.stop();
      return gone.url();
    }();
    return url;
  }
};

TEST_F(NatsServerListTest, AListConnectsToTheServerThatAnswersInEitherOrderWithOrWithoutBlanks) {
  for (const std::string& list : {deadUrl() + "," + url(), url() + ", " + deadUrl(),
                                  " " + deadUrl() + " ,\t" + url() + " "}) {
    natstest::FarShop far(list);
    natstest::ClientShop client(list);
    EXPECT_EQ(far.listener->connectedUrl(), url()) << list;
    EXPECT_EQ(client.link->connectedUrl(), url()) << list;
    const std::unique_ptr<connector::Message> answer = client.reserve("LAMP-01", 1);
    auto* reservation = dynamic_cast<shop::Reservation*>(answer.get());
    ASSERT_NE(reservation, nullptr) << list;
    EXPECT_TRUE(reservation->accepted);
  }
}

TEST_F(NatsServerListTest, AListWhereNoServerAnswersFailsNamingTheListWithoutCredentials) {
  const std::string dead = deadUrl();  // nats://127.0.0.1:<port>
  const std::string withSecrets =
      "nats://tok-91a3@" + dead.substr(7) + " , nats://bob:pw-77c1@" + dead.substr(7);
  EXPECT_THROW_TEXT(
      NatsLink link(natstest::linkOptions(withSecrets)), std::runtime_error,
      "NatsLink cannot connect to " + dead + "," + dead + ": No server available for connection");
  auto router = std::make_shared<connector::Router>();
  EXPECT_THROW_TEXT(NatsListener listener(router, natstest::listenerOptions(withSecrets)),
                    std::runtime_error,
                    "NatsListener cannot connect to " + dead + "," + dead +
                        ": No server available for connection");
}

TEST_F(NatsServerListTest, AnEmptyEntryIsRefusedBeforeConnecting) {
  for (const std::string& list :
       {url() + ",," + url(), url() + ",", "," + url(), url() + ", ,tls://tok@127.0.0.1:1"}) {
    EXPECT_THROW_TEXT(NatsLink link(natstest::linkOptions(list)), std::invalid_argument,
                      "NatsLink cannot use the URL '" + connector::nats::displayUrl(list) +
                          "': it has an empty entry");
  }
  EXPECT_THROW_TEXT(
      NatsLink link(natstest::linkOptions(url() + ",,tls://tok@127.0.0.1:1")),
      std::invalid_argument,
      "NatsLink cannot use the URL '" + url() + ",,tls://127.0.0.1:1': it has an empty entry");
}

TEST(DisplayUrlListTest, ShowsEveryEntryTrimmedAndWithoutCredentials) {
  using connector::nats::displayUrl;
  EXPECT_EQ(displayUrl(" nats://a:1 ,\tnats://t@b:2,tls://u:p@c:3 "),
            "nats://a:1,nats://b:2,tls://c:3");
  EXPECT_EQ(displayUrl("nats://a:1,,nats://b:2"), "nats://a:1,,nats://b:2");
  EXPECT_EQ(displayUrl(""), "");
}

}  // namespace
