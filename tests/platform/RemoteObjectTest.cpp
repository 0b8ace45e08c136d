#include "platform/RemoteObject.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>

#include "platform/Exception.h"
#include "tests/support/CallbackHost.h"
#include "tests/support/Sandbox.h"
#include "tests/support/SessionBus.h"
#include "tests/support/WaitFor.h"

namespace {

using platform::Exception;
using platform::PropertyList;
using platform::RemoteObject;
using test::CallbackHost;
using test::Sandbox;
using test::SessionBus;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kName[] = "QVProClientCallback";
constexpr char kProtocol[] = "QVVELMErrorCallbackProtocol";
// Nothing that a host or a bus does may take longer, see BusConnection and RemoteProcess.
constexpr std::chrono::milliseconds kBound{3500};

std::unique_ptr<RemoteObject> lookUp() {
  std::unique_ptr<RemoteObject> object = RemoteObject::lookUp(kName);
  if (object) object->setProtocol(kProtocol);
  return object;
}

// The name of the exception that `work` raises, "" for none.
template <class Work>
std::string exceptionOf(Work work) {
  try {
    work();
  } catch (const Exception& exception) {
    EXPECT_NE(exception.reason(), "");
    return exception.name();
  }
  return "";
}

// Everything is done twice: by an ordinary user, who speaks to the bus, and by the superuser, who
// has a child do so.
class RemoteObjectTest : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
    if (isSuperuser()) {
      sandbox_.setConsoleUser(Sandbox::kConsoleUser);
    } else {
      sandbox_.becomeUser(Sandbox::kConsoleUser);
    }
  }
  static bool isSuperuser() { return std::string(GetParam()) == "superuser"; }

  void startBus() {
    bus_ = isSuperuser() ? std::make_unique<SessionBus>(sandbox_, Sandbox::kConsoleUserId)
                         : std::make_unique<SessionBus>(sandbox_);
    bus_->announce();
  }
  std::unique_ptr<CallbackHost> startHost(const std::vector<std::string>& more) {
    std::vector<std::string> options = {"--name", kName};
    options.insert(options.end(), more.begin(), more.end());
    return isSuperuser() ? std::make_unique<CallbackHost>(options, Sandbox::kConsoleUserId)
                         : std::make_unique<CallbackHost>(options);
  }
  bool answersOneAfterReading(const std::string& description) {
    const std::string file = sandbox_.home() + "/description.xml";
    std::ofstream(file, std::ios::binary) << description;
    const auto host = startHost({"--description", file});
    return lookUp()->respondsTo("one");
  }

  Sandbox sandbox_;
  std::unique_ptr<SessionBus> bus_;
};

INSTANTIATE_TEST_SUITE_P(As, RemoteObjectTest, testing::Values("user", "superuser"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(RemoteObjectTest, WithoutABusThereIsNobody) {
  EXPECT_EQ(lookUp(), nullptr);
}

TEST_P(RemoteObjectTest, OnABusWhereNobodyHasTheNameThereIsNobody) {
  startBus();
  EXPECT_EQ(lookUp(), nullptr);
}

TEST_P(RemoteObjectTest, AnAddressThatIsNoSocketIsNoBus) {
  for (const char* address : {"autolaunch:", "unixexec:path=/bin/true", "nonsense", ";;",
                              "unix:path=/nowhere", "tcp:host=localhost,port=1"}) {
    ::setenv("DBUS_SESSION_BUS_ADDRESS", address, 1);
    EXPECT_EQ(lookUp(), nullptr) << address;
  }
}

TEST_P(RemoteObjectTest, ANameThatNoBusHasIsNobodys) {
  startBus();
  for (const char* name : {"", "two words", "../x", "1", "\xFF", "a..b"}) {
    EXPECT_EQ(RemoteObject::lookUp(name), nullptr) << name;
  }
}

TEST_P(RemoteObjectTest, ItAnswersWhatItDescribes) {
  startBus();
  const auto host = startHost({"--answers", "one", "--answers", "two"});
  const auto object = lookUp();
  ASSERT_NE(object, nullptr);
  EXPECT_TRUE(object->respondsTo("one"));
  EXPECT_TRUE(object->respondsTo("two"));
  EXPECT_FALSE(object->respondsTo("three"));
  EXPECT_FALSE(object->respondsTo(""));
}

TEST_P(RemoteObjectTest, AnotherProtocolIsNotAnswered) {
  startBus();
  const auto host = startHost({"--answers", "one"});
  const auto object = lookUp();
  ASSERT_NE(object, nullptr);
  object->setProtocol("SomeOtherProtocol");
  EXPECT_FALSE(object->respondsTo("one"));
}

TEST_P(RemoteObjectTest, MessagesArriveInOrderAndAskForNoAnswer) {
  startBus();
  const auto host = startHost({});
  const auto object = lookUp();
  ASSERT_NE(object, nullptr);
  object->perform("plain", {});
  object->perform("text", {PropertyList(std::string("Grüße 100%"))});
  object->perform("both", {PropertyList(PropertyList::Dictionary{
                               {"code", PropertyList(std::int64_t{-42})},
                               {"domain", PropertyList(std::string("com.quorvale"))}}),
                           PropertyList(std::string("App"))});
  EXPECT_THAT(
      host->waitForMessages(3),
      ElementsAre("plain", "text Grüße 100%", "both {code=x:-42, domain=s:com.quorvale} App"));
}

TEST_P(RemoteObjectTest, TextsAreMadeFitForTheBus) {
  startBus();
  const auto host = startHost({});
  const auto object = lookUp();
  ASSERT_NE(object, nullptr);
  object->perform("text", {PropertyList(std::string("a\xFF z"))});
  object->perform(
      "text",
      {PropertyList(PropertyList::Dictionary{{"\xFE", PropertyList(std::string("\xFF"))}})});
  EXPECT_THAT(host->waitForMessages(2), ElementsAre("text a\uFFFD z", "text {\uFFFD=s:\uFFFD}"));
}

TEST_P(RemoteObjectTest, ALongTextArrivesWhole) {
  startBus();
  const auto host = startHost({});
  const auto object = lookUp();
  ASSERT_NE(object, nullptr);
  // More than the socket to the superuser's child holds at once.
  const std::string text(250'000, 'x');
  object->perform("text", {PropertyList(text)});
  EXPECT_THAT(host->waitForMessages(1), ElementsAre("text " + text));
}

TEST_P(RemoteObjectTest, AMessageThatCannotBeMadeIsAnException) {
  startBus();
  const auto host = startHost({});
  const auto object = lookUp();
  ASSERT_NE(object, nullptr);
  EXPECT_NE(exceptionOf([&] { object->perform("two words", {}); }), "");
  EXPECT_NE(exceptionOf([&] { object->perform("text", {PropertyList(true)}); }), "");
}

TEST_P(RemoteObjectTest, TheOneThatWasFoundIsSpokenToWhoeverTakesTheNameAfterIt) {
  startBus();
  auto first = startHost({"--answers", "one"});
  const auto object = lookUp();
  ASSERT_NE(object, nullptr);
  first.reset();
  const auto second = startHost({"--answers", "one"});
  EXPECT_EQ(exceptionOf([&] { object->respondsTo("one"); }),
            platform::exception_name::kInvalidSendPort);
  EXPECT_THAT(second->messages(), IsEmpty());
  EXPECT_EQ(second->timesAsked(), 0U);
}

TEST_P(RemoteObjectTest, OneThatDiesWhileItIsAskedHasGone) {
  startBus();
  const auto host = startHost({"--when-asked", "leave"});
  const auto object = lookUp();
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(exceptionOf([&] { object->respondsTo("one"); }),
            platform::exception_name::kInvalidSendPort);
}

TEST_P(RemoteObjectTest, OneThatNeverAnswersCostsTheBound) {
  startBus();
  for (const char* behaviour : {"hang", "stop", "flood"}) {
    const auto host = startHost({"--when-asked", behaviour});
    const auto object = lookUp();
    ASSERT_NE(object, nullptr);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(exceptionOf([&] { object->respondsTo("one"); }),
              platform::exception_name::kPortTimeout)
        << behaviour;
    EXPECT_LT(std::chrono::steady_clock::now() - start, kBound) << behaviour;
  }
}

TEST_P(RemoteObjectTest, ABusThatNeverAnswersCostsTheBound) {
  startBus();
  bus_->daemon().signal(SIGSTOP);
  ASSERT_TRUE(test::waitFor([&] { return bus_->daemon().isStopped(); }));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(exceptionOf([] { lookUp(); }), platform::exception_name::kPortTimeout);
  EXPECT_LT(std::chrono::steady_clock::now() - start, kBound);
}

TEST_P(RemoteObjectTest, ABusThatDiesHasGone) {
  startBus();
  const auto host = startHost({});
  const auto object = lookUp();
  ASSERT_NE(object, nullptr);
  bus_.reset();
  EXPECT_EQ(exceptionOf([&] { object->respondsTo("one"); }),
            platform::exception_name::kInvalidSendPort);
}

TEST_P(RemoteObjectTest, ABrokenDescriptionAnswersNothing) {
  startBus();
  const std::string interface = std::string("<node><interface name=\"com.quorvale.") + kProtocol +
                                "\"><method name=\"one\"/></interface>";
  EXPECT_TRUE(answersOneAfterReading(interface + "</node>"));
  EXPECT_FALSE(answersOneAfterReading(interface));
  EXPECT_FALSE(answersOneAfterReading(interface + "</node><node>"));
  EXPECT_FALSE(answersOneAfterReading("nonsense"));
  EXPECT_FALSE(answersOneAfterReading(interface + std::string(2'000'000, ' ') + "</node>"));
}

TEST_P(RemoteObjectTest, NobodyIsStartedForTheName) {
  startBus();
  const std::string file = bus_->servicesFolder() + "/com.quorvale.QVProClientCallback.service";
  const std::string trace = sandbox_.home() + "/started";
  std::ofstream(file) << "[D-BUS Service]\nName=com.quorvale.QVProClientCallback\n"
                         "Exec=/usr/bin/touch "
                      << trace << "\n";
  EXPECT_EQ(lookUp(), nullptr);
  EXPECT_NE(::access(trace.c_str(), F_OK), 0);
}

// What only one of the two does.
class RemoteObjectMachineTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!Sandbox::canSimulateMachine()) GTEST_SKIP() << Sandbox::kNeedsRoot;
    sandbox_.simulateMachine();
  }
  Sandbox sandbox_;
};

TEST_F(RemoteObjectMachineTest, TheBusOfTheLoginIsFoundWithoutAnAddress) {
  sandbox_.becomeUser(Sandbox::kConsoleUser);
  const SessionBus bus(sandbox_);
  bus.announce();
  const CallbackHost host({"--name", kName});
  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  ::unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ(lookUp(), nullptr);
  ::setenv("XDG_RUNTIME_DIR", sandbox_.path("tmp/session-bus").c_str(), 1);
  EXPECT_NE(lookUp(), nullptr);
}

TEST_F(RemoteObjectMachineTest, WithNobodyAtTheConsoleTheSuperuserFindsNobody) {
  const SessionBus bus(sandbox_, Sandbox::kConsoleUserId);
  bus.announce();
  const CallbackHost host({"--name", kName}, Sandbox::kConsoleUserId);
  sandbox_.setNobodyAtConsole();
  EXPECT_EQ(lookUp(), nullptr);
}

TEST_F(RemoteObjectMachineTest, TheSuperusersChildEndsWithTheObject) {
  sandbox_.setConsoleUser(Sandbox::kConsoleUser);
  const SessionBus bus(sandbox_, Sandbox::kConsoleUserId);
  bus.announce();
  const CallbackHost host({"--name", kName}, Sandbox::kConsoleUserId);
  const std::string children = "/proc/self/task/" + std::to_string(::getpid()) + "/children";
  const std::string before = test::readFile(children);
  auto object = lookUp();
  ASSERT_NE(object, nullptr);
  EXPECT_NE(test::readFile(children), before);
  object.reset();
  EXPECT_TRUE(test::waitFor([&] { return test::readFile(children) == before; }));

  // Also one that its person has stopped.
  object = lookUp();
  ASSERT_NE(object, nullptr);
  const std::string now = test::readFile(children);
  ASSERT_TRUE(now.starts_with(before));
  ASSERT_EQ(::kill(std::stoi(now.substr(before.size())), SIGSTOP), 0);
  object.reset();
  EXPECT_TRUE(test::waitFor([&] { return test::readFile(children) == before; }));
}

}  // namespace
