// A host's channel finishes a call with ReadReplyPacket: the reply's "result" is the call's
// outcome, out arguments land only on success, and a packet that lacks the reply or its
// "result" is an error rather than a silent success.

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include <tessel_link/binding/reply_reading.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

#include "xidl/components/test_management_proxy.h"

namespace {

// Answers every call with the packet that `Write` makes.
class PacketChannel : public Binding::RequestChannel {
public:
    std::function<void(Serialization::Serializer&)> Write;

    Common::Error Send(std::unique_ptr<Binding::Request> request,
                       std::unique_ptr<Binding::RequestJob>& job) override {
        job = std::make_unique<Job>(*this, std::move(request));
        return Common::ErrorSuccess;
    }

private:
    class Job : public Binding::RequestJob {
    public:
        Job(PacketChannel& channel, std::unique_ptr<Binding::Request> request)
            : channel_(channel), request_(std::move(request)) {}
        Common::Error Run(JobManagement::JobHandler*) override {
            Serialization::XMLPacketSerializer writer(Binding::kPacketFormatRevision, 1);
            channel_.Write(writer);
            const Serialization::Blob packet = writer.Finish();
            return Binding::ReadReplyPacket(
                *request_, {packet.Data(), static_cast<std::size_t>(packet.Size())});
        }
        Common::Error Start(JobManagement::JobHandler*) override { return Common::ErrorSuccess; }
        Common::Error Stop() override { return Common::ErrorSuccess; }

    private:
        PacketChannel& channel_;
        std::unique_ptr<Binding::Request> request_;
    };
};

class ReplyReading : public ::testing::Test {
protected:
    std::shared_ptr<PacketChannel> channel = std::make_shared<PacketChannel>();
    TestManagement::TestManager_Proxy proxy{channel};

    // The reply of GetData with the given "result" and, when `out` is set, its out value.
    void Answer(Common::Error result, const char* out, bool withResult = true) {
        channel->Write = [=](Serialization::Serializer& s) {
            Serialization::MetaInfo reply("reply_TestManager_GetData");
            s.BeginWriteMetaInfo(reply);
            if (withResult) {
                s.Write(Serialization::MetaInfo("result"), result);
            }
            if (out != nullptr) {
                s.Write(Serialization::MetaInfo("result"), std::string(out));
            }
            s.FinishWriteMetaInfo(reply);
        };
    }
};

TEST_F(ReplyReading, SuccessStoresTheOutArguments) {
    Answer(Common::ErrorSuccess, "value");
    std::string out = "before";
    EXPECT_TRUE(proxy.GetData("h", 1, out).Succeeded());
    EXPECT_EQ(out, "value");
}

TEST_F(ReplyReading, AFailingResultIsTheOutcomeAndLeavesOutArgumentsAlone) {
    Answer(Common::Error(TL_ORIGIN("service"), 0x4000d), "value");
    std::string out = "before";
    const Common::Error error = proxy.GetData("h", 1, out);
    EXPECT_EQ(error.Code(), 0x4000du);
    EXPECT_EQ(out, "before");
}

TEST_F(ReplyReading, AnAbsentOutValueIsTolerated) {
    Answer(Common::ErrorSuccess, nullptr);
    std::string out = "before";
    EXPECT_TRUE(proxy.GetData("h", 1, out).Succeeded());
    EXPECT_EQ(out, "before");
}

TEST_F(ReplyReading, AnAbsentResultOrReplyIsAnError) {
    Answer(Common::ErrorSuccess, "value", false);
    std::string out;
    EXPECT_TRUE(proxy.GetData("h", 1, out).Failed());

    channel->Write = [](Serialization::Serializer& s) {
        s.Write(Serialization::MetaInfo("something_else"), std::string("x"));
    };
    EXPECT_TRUE(proxy.GetData("h", 1, out).Failed());

    // Bytes that are no packet at all.
    const unsigned char garbage[] = {'<', 'x'};
    auto request = TestManagement::MakeRequest_TestManager_GetData("h", 1, out);
    EXPECT_TRUE(Binding::ReadReplyPacket(*request, garbage).Failed());
}

// The capture answers look-ahead questions as its reader does: a reader that can count a run
// of items lets a sequence of records reserve room for all of them, and one that can compare
// the next name saves a MetaInfo per item. A capture that fell back to the base class's
// answers (no count, a MetaInfo per look) would read the same values, only slower.
TEST(ReplyResultCaptureTest, LooksAheadThroughItsReader) {
    const Serialization::MetaInfo reply("reply_TestManager_GetData");
    const Serialization::MetaInfo item("item");
    Serialization::XMLPacketSerializer writer(Binding::kPacketFormatRevision, 1);
    writer.BeginWriteMetaInfo(reply);
    writer.Write(Serialization::MetaInfo("result"), Common::ErrorSuccess);
    for (std::uint32_t i = 0; i < 3; ++i) {
        writer.Write(item, i);
    }
    writer.Write(Serialization::MetaInfo("tail"), std::uint32_t{9});
    writer.FinishWriteMetaInfo(reply);
    const Serialization::Blob packet = writer.Finish();

    Serialization::XMLPacketDeserializer reader(packet.Data(), packet.Size(),
                                                Binding::kRootSubjectVersion);
    Binding::ReplyResultCapture capture(reader);
    capture.BeginReadMetaInfo(reply);
    Common::Error result(TL_ORIGIN("test"), 1);
    capture.Read(Serialization::MetaInfo("result"), result);
    EXPECT_TRUE(capture.Captured());
    EXPECT_TRUE(capture.Result().Succeeded());

    EXPECT_EQ(capture.CountNext(item), 3u);
    EXPECT_EQ(capture.CountNext(item), reader.CountNext(item));
    EXPECT_TRUE(capture.NextIs(item));
    EXPECT_FALSE(capture.NextIs(Serialization::MetaInfo("tail")));
    std::uint32_t value = 7;
    capture.Read(item, value);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(capture.CountNext(item), 2u);
    capture.Read(item, value);
    capture.Read(item, value);
    EXPECT_EQ(value, 2u);
    EXPECT_EQ(capture.CountNext(item), 0u);
    EXPECT_TRUE(capture.NextIs(Serialization::MetaInfo("tail")));
    capture.FinishReadMetaInfo(reply);
}

}  // namespace
