#include <tessel_link/impl/binding/call.h>
#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/impl/binding/request_impl.h>
#include <tessel_link/impl/binding/service_method.h>
#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/facade/entry_points.h>
#include <tessel_link/components/test_management.h>
#include <tessel_link/serialize/credentials.h>
#include <tessel_link/serialize/errors.h>
#include <tessel_link/serialize/obscurer.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "xidl/components/test_management_proxy.h"

namespace {

using Binding::ArgumentKind;
using Binding::Detail::CreateRequest;

constexpr char kFrameStart[] = "\xEF\xBB\xBF<XML_SERIALIZER>";
constexpr char kFrameEnd[] = "</XML_SERIALIZER>";

// A packet without its frame.
std::string Body(std::span<const unsigned char> packet) {
    std::string text(packet.begin(), packet.end());
    const std::string start = kFrameStart;
    const std::string end = kFrameEnd;
    if (text.rfind(start, 0) != 0 || text.size() < start.size() + end.size()) {
        return "<<bad frame>>" + text;
    }
    return text.substr(start.size(), text.size() - start.size() - end.size());
}

// The packets of the last call through a loopback.
struct Traffic {
    std::string Request;
    std::string Reply;

    Binding::LoopbackChannel::PacketObserver Observer() {
        return [this](const Binding::Request&, std::span<const unsigned char> request,
                      std::span<const unsigned char> reply) {
            Request = Body(request);
            Reply = Body(reply);
        };
    }
};

Common::Error FakeManagerFailure(std::uint32_t code) {
    return Common::Error(TL_ORIGIN("Probe::Fail"), code, u"it went wrong");
}

// --- TestManager through CreateProxy and the loopback -------------------------------------

class FakeTestManager : public TestManagement::TestManager {
public:
    Common::Error Test() override { return Common::ErrorSuccess; }
    Common::Error TestCancel() override { return FakeManagerFailure(0x9c0042); }
    Common::Error GetData(const std::string& hostname, std::uint32_t size,
                          std::string& result) override {
        SeenHostname = hostname;
        SeenResultOnEntry = result;
        result = hostname + ":" + std::to_string(size);
        if (hostname == "throw") {
            throw FakeManagerFailure(0x9c0043);
        }
        return hostname == "fail" ? FakeManagerFailure(0x9c0044) : Common::ErrorSuccess;
    }
    Common::Error ResumeCancel(std::map<std::string, std::u16string>& resume) override {
        resume["seen"] = std::u16string(resume.size(), u'x');
        return Common::ErrorSuccess;
    }

    std::string SeenHostname;
    std::string SeenResultOnEntry;
};

class LoopbackProxy : public ::testing::Test {
protected:
    void SetUp() override {
        auto loopback = std::make_shared<Binding::LoopbackChannel>(traffic.Observer());
        loopback->Register(std::make_unique<TestManagement::TestManager_Dispatcher>(service));
        channel = loopback;
        ASSERT_EQ(CreateProxy(188, &channel, &component), Core::ProxyCreated);
        manager = Common::QueryInterface<TestManagement::TestManager>(*component);
        ASSERT_NE(manager, nullptr);
    }

    Traffic traffic;
    std::shared_ptr<FakeTestManager> service = std::make_shared<FakeTestManager>();
    Core::ChannelPointer channel;
    Core::ComponentSlot component;
    TestManagement::TestManager* manager = nullptr;
};

TEST_F(LoopbackProxy, ArgumentsReachTheServiceAndOutArgumentsComeBack) {
    std::string result = "set by the caller";
    ASSERT_EQ(manager->GetData("host-1", 4096, result).Code(), 0u);
    EXPECT_EQ(service->SeenHostname, "host-1");
    // An out argument is never sent: the service starts from an empty value.
    EXPECT_EQ(service->SeenResultOnEntry, "");
    EXPECT_EQ(result, "host-1:4096");
    EXPECT_EQ(traffic.Request,
              "<request_TestManager_GetData><hostname>host-1</hostname><size>4096</size>"
              "</request_TestManager_GetData>");
    EXPECT_EQ(traffic.Reply.rfind("<reply_TestManager_GetData><result>", 0), 0u) << traffic.Reply;
    EXPECT_NE(
        traffic.Reply.find("</result><result>host-1:4096</result></reply_TestManager_GetData>"),
        std::string::npos)
        << traffic.Reply;

    std::map<std::string, std::u16string> resume{{"a", u"1"}, {"b", u""}};
    ASSERT_EQ(manager->ResumeCancel(resume).Code(), 0u);
    EXPECT_EQ(resume.size(), 3u);
    EXPECT_EQ(resume["seen"], u"xx");
    EXPECT_EQ(resume["b"], u"");

    EXPECT_EQ(manager->Test().Code(), 0u);
    EXPECT_EQ(traffic.Request, "<request_TestManager_Test></request_TestManager_Test>");
}

TEST_F(LoopbackProxy, FailuresTravelBackAndLeaveOutArgumentsAlone) {
    for (const auto& [hostname, code] : std::vector<std::pair<std::string, std::uint32_t>>{
             {"fail", 0x9c0044}, {"throw", 0x9c0043}}) {
        std::string result = "untouched";
        const Common::Error error = manager->GetData(hostname, 1, result);
        EXPECT_EQ(error.Code(), code) << hostname;
        EXPECT_EQ(error.Text(), u"it went wrong");
        EXPECT_STREQ(error.Origin().Func, "Probe::Fail");
        EXPECT_EQ(result, "untouched");
        // Nothing but "result" is in the reply of a failed call.
        EXPECT_EQ(traffic.Reply.find("<result>" + hostname), std::string::npos) << traffic.Reply;
    }
    EXPECT_EQ(manager->TestCancel().Code(), 0x9c0042u);
}

// --- argument rules on the service side, with a probe interface ---------------------------

constexpr std::uint32_t kProbeID = 900;
constexpr std::uint64_t kProbeVersion = 4;

class ProbeManager {
public:
    virtual ~ProbeManager() = default;
    // One non-constant reference of every kind, and a constant one.
    virtual Common::Error Kinds(std::u16string& k0, std::u16string& k1, std::u16string& k2,
                                std::u16string& k3, std::u16string& k4, std::u16string& k5,
                                std::u16string& k6, std::u16string& k8,
                                const std::u16string& constant) = 0;
    virtual Common::Error Connect(const AccessManagement::Logon& logon,
                                  const Core::Optional<Common::Credentials>& fallback,
                                  const Core::Optional<AccessManagement::Logon>& none) = 0;
    virtual Common::Error Later() = 0;
};

class FakeProbe : public ProbeManager {
public:
    Common::Error Kinds(std::u16string& k0, std::u16string& k1, std::u16string& k2,
                        std::u16string& k3, std::u16string& k4, std::u16string& k5,
                        std::u16string& k6, std::u16string& k8,
                        const std::u16string& constant) override {
        Seen = {k0, k1, k2, k3, k4, k5, k6, k8, constant};
        for (std::u16string* each : {&k0, &k1, &k2, &k3, &k4, &k5, &k6, &k8}) {
            *each = u"new";
        }
        return Common::ErrorSuccess;
    }
    Common::Error Connect(const AccessManagement::Logon& logon,
                          const Core::Optional<Common::Credentials>& fallback,
                          const Core::Optional<AccessManagement::Logon>& none) override {
        SeenLogon = logon;
        SeenFallback = fallback;
        SeenNoneIsNull = none.IsNull();
        return Common::ErrorSuccess;
    }
    Common::Error Later() override {
        ++LaterCalls;
        return Common::ErrorSuccess;
    }

    std::vector<std::u16string> Seen;
    AccessManagement::Logon SeenLogon;
    Core::Optional<Common::Credentials> SeenFallback;
    bool SeenNoneIsNull = false;
    int LaterCalls = 0;
};

class ProbeDispatcher final : public Binding::ComponentDispatcher<ProbeManager> {
public:
    explicit ProbeDispatcher(std::shared_ptr<ProbeManager> implementation)
        : ComponentDispatcher(
              kProbeID, "ProbeManager", kProbeVersion, std::move(implementation),
              {Binding::Serve<ProbeManager, &ProbeManager::Kinds>(1, "Kinds", 1,
                                                                  {{"k0", ArgumentKind{0}},
                                                                   {"k1", ArgumentKind{1}},
                                                                   {"k2", ArgumentKind{2}},
                                                                   {"k3", ArgumentKind{3}},
                                                                   {"k4", ArgumentKind{4}},
                                                                   {"k5", ArgumentKind{5}},
                                                                   {"k6", ArgumentKind{6}},
                                                                   {"k8", ArgumentKind{8}},
                                                                   {"constant", ArgumentKind{0}}}),
               // Numbered out of slot order, as later methods may be.
               Binding::Serve<ProbeManager, &ProbeManager::Later>(3, "Later", 3),
               Binding::Serve<ProbeManager, &ProbeManager::Connect>(2, "Connect", 1,
                                                                    {{"logon", ArgumentKind{0}},
                                                                     {"fallback", ArgumentKind{0}},
                                                                     {"none", ArgumentKind{1}}})}) {
    }
};

Binding::MethodDescriptor ProbeMethod(std::uint32_t number, const char* name,
                                      std::uint64_t version = kProbeVersion) {
    Binding::MethodDescriptor method;
    method.ComponentID = kProbeID;
    method.MethodNumber = number;
    method.ComponentName = "ProbeManager";
    method.MethodName = name;
    method.InterfaceVersion = version;
    method.IntroducedVersion = 1;
    method.Category = Binding::kAllCategories;
    return method;
}

class LoopbackProbe : public ::testing::Test {
protected:
    LoopbackProbe() { channel.Register(std::make_unique<ProbeDispatcher>(probe)); }

    Common::Error Call(std::unique_ptr<Binding::Request> request) {
        return Binding::ExecuteCall(channel, request);
    }

    Traffic traffic;
    Binding::LoopbackChannel channel{traffic.Observer()};
    std::shared_ptr<FakeProbe> probe = std::make_shared<FakeProbe>();
};

TEST_F(LoopbackProbe, KindsDecideWhatTravelsEachWay) {
    std::u16string k0 = u"v0", k1 = u"v1", k2 = u"v2", k3 = u"v3", k4 = u"secret-4",
                   k5 = u"secret-5", k6 = u"secret-6", k8 = u"v8";
    const std::u16string constant = u"c";
    using Sig =
        void(std::u16string&, std::u16string&, std::u16string&, std::u16string&, std::u16string&,
             std::u16string&, std::u16string&, std::u16string&, const std::u16string&);
    ASSERT_EQ(Call(CreateRequest<Sig>(ProbeMethod(1, "Kinds"), {k0, "k0", ArgumentKind{0}},
                                      {k1, "k1", ArgumentKind{1}}, {k2, "k2", ArgumentKind{2}},
                                      {k3, "k3", ArgumentKind{3}}, {k4, "k4", ArgumentKind{4}},
                                      {k5, "k5", ArgumentKind{5}}, {k6, "k6", ArgumentKind{6}},
                                      {k8, "k8", ArgumentKind{8}},
                                      {constant, "constant", ArgumentKind{0}}))
                  .Code(),
              0u);

    // The service reads what was sent, obscured values in clear; out and invalid kinds
    // start empty.
    EXPECT_EQ(probe->Seen, (std::vector<std::u16string>{u"v0", u"v1", u"", u"v3", u"secret-4",
                                                        u"secret-5", u"", u"", u"c"}));
    // The request holds the sent arguments in declaration order, the secrets never in clear.
    EXPECT_EQ(traffic.Request.find("secret"), std::string::npos) << traffic.Request;
    std::size_t at = 0;
    for (const char* name : {"<k0>", "<k1>", "<k3>", "<k4>", "<k5>", "<constant>"}) {
        const std::size_t next = traffic.Request.find(name, at);
        ASSERT_NE(next, std::string::npos) << name << " in " << traffic.Request;
        at = next;
    }
    EXPECT_EQ(traffic.Request.find("<k2>"), std::string::npos);
    EXPECT_EQ(traffic.Request.find("<k6>"), std::string::npos);
    EXPECT_EQ(traffic.Request.find("<k8>"), std::string::npos);

    // Back come the non-constant references whose kind is not in.
    EXPECT_EQ(k0, u"new");
    EXPECT_EQ(k1, u"v1");
    EXPECT_EQ(k2, u"new");
    EXPECT_EQ(k3, u"new");
    EXPECT_EQ(k4, u"new");
    EXPECT_EQ(k5, u"secret-5");
    EXPECT_EQ(k6, u"new");
    EXPECT_EQ(k8, u"new");
    EXPECT_EQ(traffic.Reply.find("<k1>"), std::string::npos);
    EXPECT_EQ(traffic.Reply.find("<k5>"), std::string::npos);
    EXPECT_EQ(traffic.Reply.find("<constant>"), std::string::npos);
}

class CountingHook : public Common::CredentialsHook {
public:
    void Process(Common::Credentials& credentials) override {
        Passwords.push_back(credentials.Password);
        credentials.UserName = u"hooked-" + credentials.UserName;
    }
    std::vector<std::u16string> Passwords;
};

std::unique_ptr<Binding::Request> ConnectRequest(
    const AccessManagement::Logon& logon, const Core::Optional<Common::Credentials>& fallback,
    const Core::Optional<AccessManagement::Logon>& none) {
    using Sig = void(const AccessManagement::Logon&, const Core::Optional<Common::Credentials>&,
                     const Core::Optional<AccessManagement::Logon>&);
    return CreateRequest<Sig>(ProbeMethod(2, "Connect"), {logon, "logon", ArgumentKind{0}},
                              {fallback, "fallback", ArgumentKind{0}},
                              {none, "none", ArgumentKind{1}});
}

TEST_F(LoopbackProbe, CredentialsTravelAsUserNameThenPasswordAlsoWhenEmpty) {
    const AccessManagement::Logon logon(u"", u"");
    const Core::Optional<Common::Credentials> fallback(Common::Credentials{u"u2", u"p2"});
    ASSERT_EQ(Call(ConnectRequest(logon, fallback, {})).Code(), 0u);
    EXPECT_EQ(traffic.Request,
              "<request_ProbeManager_Connect>"
              "<logon><UserName></UserName><Password></Password></logon>"
              "<fallback><optional_type><is_null>0</is_null>"
              "<value><UserName>u2</UserName><Password>p2</Password></value>"
              "</optional_type></fallback>"
              "<none><optional_type><is_null>1</is_null></optional_type></none>"
              "</request_ProbeManager_Connect>");
    EXPECT_EQ(probe->SeenLogon, logon);
    EXPECT_EQ(probe->SeenFallback, fallback);
    EXPECT_TRUE(probe->SeenNoneIsNull);
}

TEST_F(LoopbackProbe, CredentialsHookOfTheThreadSeesEveryPairWrittenAndRead) {
    const AccessManagement::Logon logon(u"user", u"pw");
    const Core::Optional<Common::Credentials> fallback(Common::Credentials{u"u2", u"p2"});
    CountingHook hook;
    Common::CredentialsHook* previous = Common::SetCredentialsHook(&hook);
    const Common::Error result = Call(ConnectRequest(logon, fallback, {}));
    Common::SetCredentialsHook(previous);
    ASSERT_EQ(result.Code(), 0u);

    // The caller's values are not changed: the hook works on a copy.
    EXPECT_EQ(logon.UserName(), u"user");
    EXPECT_EQ(fallback.Get().UserName, u"u2");
    // The packet carries what the hook made of them; a null optional has no pair to hook.
    EXPECT_NE(traffic.Request.find("<UserName>hooked-user</UserName><Password>pw</Password>"),
              std::string::npos);
    EXPECT_NE(traffic.Request.find("<UserName>hooked-u2</UserName><Password>p2</Password>"),
              std::string::npos);
    // The service reads on this thread too; on reading, the hook runs after both strings.
    EXPECT_EQ(hook.Passwords, (std::vector<std::u16string>{u"pw", u"p2", u"pw", u"p2"}));
    EXPECT_EQ(probe->SeenLogon.UserName(), u"hooked-hooked-user");
    EXPECT_EQ(probe->SeenFallback.Get().UserName, u"hooked-hooked-u2");
}

TEST_F(LoopbackProbe, CallsThatReachNoMethodFailCleanly) {
    // No dispatcher for the component.
    std::string result = "untouched";
    Binding::MethodDescriptor unknown = ProbeMethod(1, "Kinds");
    unknown.ComponentID = 901;
    Common::Error error =
        Call(CreateRequest<void(std::string&)>(unknown, {result, "result", ArgumentKind::Out}));
    EXPECT_EQ(error.Code(), Binding::kErrorUnknownComponent);
    EXPECT_EQ(error.GetNumber("0"), 901u);
    EXPECT_EQ(error.Text(), u"Cannot find a component with ID '{0}'.");

    // Method numbers beyond the table, and 0.
    for (std::uint32_t number : {0u, 4u, 0xffffffffu}) {
        error = Call(CreateRequest<void(std::string&)>(ProbeMethod(number, "Kinds"),
                                                       {result, "result", ArgumentKind::Out}));
        EXPECT_EQ(error.Code(), Binding::kErrorUnknownMethod) << number;
        EXPECT_EQ(error.GetNumber("1"), number);
    }

    // A method newer than the caller's interface.
    error = Call(CreateRequest<void()>(ProbeMethod(3, "Later", 2)));
    EXPECT_EQ(error.Code(), Binding::kErrorVersionNotSupported);
    EXPECT_EQ(probe->LaterCalls, 0);
    EXPECT_EQ(Call(CreateRequest<void()>(ProbeMethod(3, "Later", 3))).Code(), 0u);
    EXPECT_EQ(probe->LaterCalls, 1);
    EXPECT_EQ(result, "untouched");
}

TEST_F(LoopbackProbe, RequestThatLacksAnArgumentIsRefusedWithoutCallingTheService) {
    // A caller whose request element does not match the method: the service finds no "logon".
    const Core::Optional<Common::Credentials> fallback;
    const Common::Error error =
        Call(CreateRequest<void(const Core::Optional<Common::Credentials>&)>(
            ProbeMethod(2, "Connect"), {fallback, "fallback", ArgumentKind{0}}));
    EXPECT_EQ(error.Code(), Serialization::kErrorInconsistentMetadata);
    EXPECT_FALSE(probe->SeenNoneIsNull);

    // A request element of another name.
    const Common::Error renamed = Call(CreateRequest<void()>(ProbeMethod(3, "Earlier")));
    EXPECT_EQ(renamed.Code(), Serialization::kErrorInconsistentMetadata);
    EXPECT_EQ(probe->LaterCalls, 0);
}

TEST(LoopbackChannel, ReplacedDispatcherServesNewCallsAndStartNeedsAHandler) {
    Binding::LoopbackChannel channel;
    EXPECT_EQ(channel.Find(188), nullptr);
    auto first = std::make_shared<FakeTestManager>();
    auto second = std::make_shared<FakeTestManager>();
    channel.Register(std::make_unique<TestManagement::TestManager_Dispatcher>(first));
    const Binding::ServiceDispatcher* old = channel.Find(188);
    channel.Register(std::make_unique<TestManagement::TestManager_Dispatcher>(second));
    EXPECT_NE(channel.Find(188), old);
    channel.Register(nullptr);

    std::string result;
    auto request = TestManagement::MakeRequest_TestManager_GetData("h", 1, result);
    std::unique_ptr<Binding::RequestJob> job;
    ASSERT_EQ(channel.Send(std::move(request), job).Code(), 0u);
    EXPECT_EQ(job->Start(nullptr).Code(), Binding::kErrorNullPointer);
    ASSERT_EQ(job->Run(nullptr).Code(), 0u);
    EXPECT_EQ(first->SeenHostname, "");
    EXPECT_EQ(second->SeenHostname, "h");
}

}  // namespace
