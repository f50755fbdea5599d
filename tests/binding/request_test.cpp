#include <tessel_link/impl/binding/request_impl.h>
#include <tessel_link/common/assert.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/serialize/obscurer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "xidl/components/test_management_proxy.h"
#include <tessel_link/testing/recording_ends.h>

namespace {

using Binding::ArgumentKind;
using Binding::Detail::CreateRequest;
using Testing::Element;
using Testing::Node;
using Testing::ValueNode;

Binding::MethodDescriptor ProbeManagerMethod(const char* name) {
    Binding::MethodDescriptor method;
    method.ComponentID = 900;
    method.MethodNumber = 7;
    method.ComponentName = "ProbeManager";
    method.MethodName = name;
    method.InterfaceVersion = 12;
    method.IntroducedVersion = 3;
    method.Category = Binding::kAllCategories;
    return method;
}

Node Written(const Binding::Request& request) {
    Testing::RecordingSerializer serializer;
    request.WriteRequest(serializer);
    EXPECT_EQ(serializer.Root.Children.size(), 1u);
    return serializer.Root.Children.empty() ? Node{} : serializer.Root.Children[0];
}

Node Reply(const char* method, Common::Error result, std::vector<Node> values) {
    values.insert(values.begin(), ValueNode("result", std::move(result)));
    return Element(std::string("reply_ProbeManager_") + method, std::move(values));
}

Common::Error ReplyFailure() {
    return Common::Error(TL_ORIGIN("Probe"), 0x9c0005);
}

// One non-constant reference argument of every kind, and a constant one.
struct KindsCall {
    std::string k0 = "v0", k1 = "v1", k2 = "v2", k3 = "v3", k5 = "v5", k6 = "v6", k8 = "v8";
    std::string constant = "c";

    std::unique_ptr<Binding::Request> Make() {
        using Sig = void(std::string&, std::string&, std::string&, std::string&, std::string&,
                         std::string&, std::string&, const std::string&);
        return CreateRequest<Sig>(ProbeManagerMethod("Kinds"), {k0, "k0", ArgumentKind{0}},
                                  {k1, "k1", ArgumentKind{1}}, {k2, "k2", ArgumentKind{2}},
                                  {k3, "k3", ArgumentKind{3}}, {k5, "k5", ArgumentKind{5}},
                                  {k6, "k6", ArgumentKind{6}}, {k8, "k8", ArgumentKind{8}},
                                  {constant, "constant", ArgumentKind{0}});
    }

    std::vector<Node> AllNew() const {
        std::vector<Node> values;
        for (const char* name : {"k0", "k1", "k2", "k3", "k5", "k6", "k8", "constant"}) {
            values.push_back(ValueNode(name, std::string("new")));
        }
        return values;
    }
};

TEST(RequestWrite, ElementNamesTheInterfaceAndMethodAndHoldsTheSentArguments) {
    std::string result = "untouched";
    const auto request = TestManagement::MakeRequest_TestManager_GetData("host-1", 4096, result);
    const Node element = Written(*request);
    EXPECT_EQ(element.Name, "request_TestManager_GetData");
    EXPECT_EQ(element.ChildNames(), (std::vector<std::string>{"hostname", "size"}));
    EXPECT_EQ(*element.ValueOf<std::string>("hostname"), "host-1");
    EXPECT_EQ(*element.ValueOf<std::uint32_t>("size"), 4096u);

    const Node empty = Written(*TestManagement::MakeRequest_TestManager_Test());
    EXPECT_EQ(empty.Name, "request_TestManager_Test");
    EXPECT_TRUE(empty.Children.empty());
}

TEST(RequestWrite, KindDecidesWhatIsSent) {
    KindsCall call;
    const Node element = Written(*call.Make());
    // Out (2, 6) and anything above 7 stay out of the packet; 5 is "in", obscured, and
    // cannot be obscured here, so it is reported and left out too.
    EXPECT_EQ(element.ChildNames(), (std::vector<std::string>{"k0", "k1", "k3", "constant"}));
}

TEST(RequestWrite, ArgumentsAreCopiedWhenTheRequestIsBuilt) {
    std::string host = "first";
    std::string result;
    const auto request = TestManagement::MakeRequest_TestManager_GetData(host, 1, result);
    host = "second";
    EXPECT_EQ(*Written(*request).ValueOf<std::string>("hostname"), "first");
    EXPECT_EQ(*Written(*request).ValueOf<std::string>("hostname"), "first");
}

const char* lastAssertion = nullptr;
void RecordAssertion(const char* expression, const char*, int) {
    lastAssertion = expression;
}

TEST(RequestWrite, ObscuredArgumentIsNeverSentInClear) {
    const auto previous = Common::SetAssertionObserver(&RecordAssertion);
    lastAssertion = nullptr;

    std::uint32_t number = 5;
    const std::u16string secret = u"s3cret";
    const auto request = CreateRequest<void(std::uint32_t, const std::u16string&)>(
        ProbeManagerMethod("Secret"), {number, "number", ArgumentKind::Obscured},
        {secret, "password", ArgumentKind::Obscured});
    const Node element = Written(*request);
    Common::SetAssertionObserver(previous);

    // A type that cannot be obscured: the assertion fires and nothing is written.
    ASSERT_NE(lastAssertion, nullptr);
    EXPECT_STREQ(lastAssertion, "!\"Value is not encryptable but encyption was requested\"");
    EXPECT_EQ(element.Child("number"), nullptr);

    const auto* written = element.ValueOf<std::u16string>("password");
    ASSERT_NE(written, nullptr);
    EXPECT_NE(*written, secret);
    EXPECT_EQ(Serialization::Unobscure(*written), secret);
}

TEST(RequestWrite, PacketHoldsTheElementWithSentArgumentsOnly) {
    std::string result = "not sent";
    const std::u16string secret = u"s3cret";
    const auto request =
        CreateRequest<void(const std::string&, const std::u16string&, std::string&)>(
            ProbeManagerMethod("Logon"), {"host-1", "host", ArgumentKind::Default},
            {secret, "password", ArgumentKind::Obscured}, {result, "result", ArgumentKind::Out});

    Serialization::XMLPacketSerializer serializer(2, 0xffffffffu);
    request->WriteRequest(serializer);
    std::vector<unsigned char> bytes;
    serializer.Finish(bytes);
    const std::string packet(bytes.begin(), bytes.end());

    const std::string obscured = Common::Utf16ToUtf8(Serialization::Obscure(secret));
    EXPECT_NE(packet.find("<request_ProbeManager_Logon><host>host-1</host><password>" + obscured +
                          "</password></request_ProbeManager_Logon>"),
              std::string::npos)
        << packet;
    EXPECT_EQ(packet.find("s3cret"), std::string::npos);
    EXPECT_EQ(packet.find("result"), std::string::npos);
}

TEST(RequestRead, KindAndConstnessDecideWhatIsReadBack) {
    KindsCall call;
    const auto request = call.Make();
    Testing::ScriptedDeserializer reply(Reply("Kinds", Common::ErrorSuccess, call.AllNew()));
    request->ReadReply(reply);

    EXPECT_EQ(call.k0, "new");
    EXPECT_EQ(call.k1, "v1");  // in: never read back, though the reply holds it
    EXPECT_EQ(call.k2, "new");
    EXPECT_EQ(call.k3, "new");
    EXPECT_EQ(call.k5, "v5");  // in, obscured
    EXPECT_EQ(call.k6, "new");
    const auto read = [&reply](const char* name) {
        return std::find(reply.Reads.begin(), reply.Reads.end(), name) != reply.Reads.end();
    };
    EXPECT_FALSE(read("k1"));
    EXPECT_FALSE(read("k5"));
    EXPECT_FALSE(read("constant"));
}

TEST(RequestRead, FailingResultLeavesOutArgumentsAlone) {
    KindsCall call;
    const auto request = call.Make();
    Testing::ScriptedDeserializer reply(Reply("Kinds", ReplyFailure(), call.AllNew()));
    request->ReadReply(reply);
    EXPECT_EQ(call.k0, "v0");
    EXPECT_EQ(call.k2, "v2");
    EXPECT_EQ(reply.Reads, (std::vector<std::string>{"result"}));
}

TEST(RequestRead, MissingOrUnreadableOutArgumentIsTolerated) {
    KindsCall call;
    const auto request = call.Make();
    // k0 is absent, k2 has the wrong type, k3 is fine.
    Testing::ScriptedDeserializer reply(
        Reply("Kinds", Common::ErrorSuccess,
              {ValueNode("k2", std::uint32_t{1}), ValueNode("k3", std::string("new"))}));
    EXPECT_NO_THROW(request->ReadReply(reply));
    EXPECT_EQ(call.k0, "v0");
    EXPECT_EQ(call.k2, "v2");
    EXPECT_EQ(call.k3, "new");
}

TEST(RequestRead, MissingReplyElementOrResultIsThrown) {
    KindsCall call;
    const auto request = call.Make();
    Testing::ScriptedDeserializer wrongElement(
        Element("reply_ProbeManager_Other", {ValueNode("result", Common::Error())}));
    EXPECT_THROW(request->ReadReply(wrongElement), Common::Error);

    Testing::ScriptedDeserializer noResult(
        Element("reply_ProbeManager_Kinds", {ValueNode("k0", std::string("new"))}));
    EXPECT_THROW(request->ReadReply(noResult), Common::Error);
    EXPECT_EQ(call.k0, "v0");
}

TEST(RequestRead, MapOutArgumentRoundTrips) {
    std::map<std::string, std::u16string> resume{{"a", u"1"}};
    const auto request = TestManagement::MakeRequest_TestManager_ResumeCancel(resume);

    Node written = Written(*request);
    ASSERT_NE(written.Child("resume"), nullptr);
    EXPECT_EQ(written.Child("resume")->ChildNames(), (std::vector<std::string>{"map"}));

    // Answer with the written map plus one entry.
    Node map = written.Child("resume")->Children.at(0);
    map.Children.push_back(Element(
        "item", {ValueNode("first", std::string("b")), ValueNode("second", std::u16string(u"2"))}));
    Testing::ScriptedDeserializer reply(
        Element("reply_TestManager_ResumeCancel",
                {ValueNode("result", Common::Error()), Element("resume", {map})}));
    request->ReadReply(reply);
    EXPECT_EQ(resume, (std::map<std::string, std::u16string>{{"a", u"1"}, {"b", u"2"}}));
}

// An over-aligned argument that counts its live copies and fails the copy it is told to.
struct alignas(32) Tracked {
    static inline int live = 0;
    static inline int copiesBeforeFailure = -1;
    std::int32_t id = 0;

    explicit Tracked(std::int32_t i = 0) : id(i) { ++live; }
    Tracked(const Tracked& other) : id(other.id) {
        if (copiesBeforeFailure == 0) {
            throw Common::Error(TL_ORIGIN("Probe"), 0x9c0006);
        }
        --copiesBeforeFailure;
        ++live;
    }
    Tracked& operator=(const Tracked&) = default;
    ~Tracked() { --live; }
};
Serialization::Serializer& operator<<(Serialization::Serializer& s, const Tracked& value) {
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&value) % alignof(Tracked), 0u);
    s.Write(Serialization::MetaInfo("id"), value.id);
    return s;
}
Serialization::Deserializer& operator>>(Serialization::Deserializer& d, Tracked& value) {
    d.Read(Serialization::MetaInfo("id"), value.id);
    return d;
}

TEST(RequestBuild, ArgumentCopiesLiveWithTheRequestAndAFailedCopyLeavesNone) {
    using Sig = void(const Tracked&, const std::string&, Tracked&, const Tracked&);
    Tracked a(1), c(3), d(4);
    const std::string b = "b";
    const auto make = [&] {
        return CreateRequest<Sig>(ProbeManagerMethod("Track"), {a, "a", ArgumentKind{0}},
                                  {b, "b", ArgumentKind{0}}, {c, "c", ArgumentKind{0}},
                                  {d, "d", ArgumentKind{0}});
    };
    {
        const auto request = make();
        EXPECT_EQ(Tracked::live, 6);
        a.id = 10;  // the request holds its own copies
        const Node written = Written(*request);
        EXPECT_EQ(written.ChildNames(), (std::vector<std::string>{"a", "b", "c", "d"}));
        const std::int32_t* first = written.Child("a")->ValueOf<std::int32_t>("id");
        const std::int32_t* last = written.Child("d")->ValueOf<std::int32_t>("id");
        ASSERT_TRUE(first != nullptr && last != nullptr);
        EXPECT_EQ(*first, 1);
        EXPECT_EQ(*last, 4);
    }
    EXPECT_EQ(Tracked::live, 3);
    for (int failing : {0, 1, 2}) {
        Tracked::copiesBeforeFailure = failing;
        EXPECT_THROW(make(), Common::Error) << failing;
        EXPECT_EQ(Tracked::live, 3) << failing;
    }
    Tracked::copiesBeforeFailure = -1;
}

// An argument whose codec writes, or reads, a whole other request while the element of its
// own request is open, as a codec that made a call of its own would.
struct NestedRequest {
    static inline Binding::Request* Inner = nullptr;
    static inline std::string InnerPacket;
    static inline Testing::ScriptedDeserializer* InnerReply = nullptr;

    static void Construct(void* at) { ::new (at) int(0); }
    static void Copy(void* at, const void* from) { ::new (at) int(*static_cast<const int*>(from)); }
    static void Destroy(void*) {}
    static void Write(Serialization::Serializer& serializer, const Serialization::MetaInfo& meta,
                      const void*) {
        Serialization::XMLPacketSerializer inner(2, 0xffffffffu);
        Inner->WriteRequest(inner);
        std::vector<unsigned char> bytes;
        inner.Finish(bytes);
        InnerPacket.assign(bytes.begin(), bytes.end());
        serializer.Write(meta, std::uint32_t{5});
    }
    static void Read(Serialization::Deserializer& deserializer, const Serialization::MetaInfo& meta,
                     void* value) {
        Inner->ReadReply(*InnerReply);
        std::uint32_t read = 0;
        deserializer.Read(meta, read);
        *static_cast<int*>(value) = static_cast<int>(read);
    }
};

constexpr Binding::Detail::ArgumentType kNestedType{
    sizeof(int),         alignof(int),         &NestedRequest::Construct,
    &NestedRequest::Copy, &NestedRequest::Destroy, &NestedRequest::Write,
    &NestedRequest::Read, false};

// Tells which element each FinishReadMetaInfo names.
class ClosingTrail : public Testing::ScriptedDeserializer {
public:
    using ScriptedDeserializer::ScriptedDeserializer;
    void FinishReadMetaInfo(const Serialization::MetaInfo& meta) override {
        Closed.push_back(meta.Name);
        ScriptedDeserializer::FinishReadMetaInfo(meta);
    }
    std::vector<std::string> Closed;
};

TEST(RequestNesting, ARequestWrittenOrReadInsideAnotherLeavesTheOuterElementItsName) {
    const auto inner = CreateRequest<void()>(ProbeManagerMethod("Inner"));
    NestedRequest::Inner = inner.get();
    int value = 0;
    const Binding::Detail::ErasedArgument argument{&kNestedType, &value, &value, "nested",
                                                   ArgumentKind::InOut};
    const auto outer = Binding::Detail::MakeRequest(ProbeManagerMethod("Outer"), &argument, 1);

    Serialization::XMLPacketSerializer serializer(2, 0xffffffffu);
    outer->WriteRequest(serializer);
    std::vector<unsigned char> bytes;
    serializer.Finish(bytes);
    const std::string packet(bytes.begin(), bytes.end());
    EXPECT_NE(packet.find("<request_ProbeManager_Outer><nested>5</nested>"
                          "</request_ProbeManager_Outer>"),
              std::string::npos)
        << packet;
    EXPECT_NE(NestedRequest::InnerPacket.find("<request_ProbeManager_Inner"), std::string::npos)
        << NestedRequest::InnerPacket;
    EXPECT_NE(NestedRequest::InnerPacket.find("request_ProbeManager_Inner>"), std::string::npos);

    Testing::ScriptedDeserializer innerReply(Reply("Inner", Common::ErrorSuccess, {}));
    NestedRequest::InnerReply = &innerReply;
    ClosingTrail reply(Reply("Outer", Common::ErrorSuccess, {ValueNode("nested", std::uint32_t{9})}));
    outer->ReadReply(reply);
    EXPECT_EQ(value, 9);
    EXPECT_EQ(reply.Closed, (std::vector<std::string>{"reply_ProbeManager_Outer"}));

    // The names are formed anew for every request, whatever the thread formed before.
    const auto shorter = CreateRequest<void()>(ProbeManagerMethod("X"));
    EXPECT_EQ(Written(*shorter).Name, "request_ProbeManager_X");
    EXPECT_EQ(Written(*inner).Name, "request_ProbeManager_Inner");
    NestedRequest::Inner = nullptr;
    NestedRequest::InnerReply = nullptr;
}

TEST(RequestIdentity, DescriptorPropertiesAndCaster) {
    std::string result;
    const auto request = TestManagement::MakeRequest_TestManager_GetData("h", 1, result);
    EXPECT_EQ(request->GetComponentID(), 188u);
    EXPECT_EQ(request->GetMethodNumber(), 3u);
    EXPECT_EQ(request->GetInterfaceVersion(), 1u);
    EXPECT_EQ(request->GetCategory(), ~std::uint64_t{0});

    EXPECT_TRUE(request->GetProperties().empty());
    request->SetProperty("route", u"a");
    request->SetProperty("route", u"b");
    EXPECT_EQ(request->GetProperties(), (Binding::RequestProperties{{"route", u"b"}}));

    auto* base = Common::QueryInterface<Binding::Detail::RequestBase>(*request);
    ASSERT_NE(base, nullptr);
    EXPECT_EQ(base->Method().MethodName, "GetData");
    EXPECT_EQ(Common::QueryInterface<Binding::Request>(*request), nullptr);
    EXPECT_EQ(request->QueryType(nullptr), nullptr);
}

}  // namespace
