#include <gtest/gtest.h>

#include <tessel_link/net/address.h>
#include <tessel_link/net/errors.h>
#include <tessel_link/net/frame.h>

#include <string>
#include <vector>

namespace {

using Net::FrameStatus;

std::vector<unsigned char> Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

Net::FrameHeader SampleHeader() {
    Net::FrameHeader header;
    header.Flags = Net::kFlagReply;
    header.ComponentId = 161;
    header.MethodNumber = 20;
    header.InterfaceVersion = 0x0102030405060708ull;
    header.Category = 0xfffffffe;
    return header;
}

TEST(Frame, HeaderLayoutIsLittleEndianAtFixedOffsets) {
    const std::vector<unsigned char> frame = Net::EncodeFrame(SampleHeader(), Bytes("abc"));
    ASSERT_EQ(frame.size(), Net::kFrameHeaderSize + 3);
    const std::vector<unsigned char> expected = {
        'T', 'L', 'N', 'K', 1, 0, 1, 0,               // magic, version, flags
        161, 0, 0, 0, 20, 0, 0, 0,                    // component, method
        8, 7, 6, 5, 4, 3, 2, 1,                       // interface version
        0xfe, 0xff, 0xff, 0xff, 3, 0, 0, 0,           // category, length
        'a', 'b', 'c'};
    EXPECT_EQ(frame, expected);
}

TEST(Frame, ReaderTakesFramesFedByteByByteAndBackToBack) {
    std::vector<unsigned char> stream = Net::EncodeFrame(SampleHeader(), Bytes("first"));
    Net::FrameHeader second = SampleHeader();
    second.Flags = 0;
    second.MethodNumber = 7;
    const std::vector<unsigned char> more = Net::EncodeFrame(second, {});
    stream.insert(stream.end(), more.begin(), more.end());

    Net::FrameReader reader;
    std::vector<Net::Frame> frames;
    for (const unsigned char byte : stream) {
        reader.Feed({&byte, 1});
        Net::Frame frame;
        const FrameStatus status = reader.Next(frame);
        ASSERT_TRUE(status == FrameStatus::Complete || status == FrameStatus::NeedMore);
        if (status == FrameStatus::Complete) {
            frames.push_back(frame);
        }
    }
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].Payload, Bytes("first"));
    EXPECT_EQ(frames[0].Header.ComponentId, 161u);
    EXPECT_EQ(frames[0].Header.PayloadLength, 5u);
    EXPECT_TRUE(frames[1].Payload.empty());
    EXPECT_EQ(frames[1].Header.MethodNumber, 7u);
    EXPECT_FALSE(frames[1].Header.IsReply());
    EXPECT_EQ(reader.Buffered(), 0u);
}

TEST(Frame, BadHeadersFailAndStayFailed) {
    {
        Net::FrameReader reader;
        reader.Feed(Bytes("GET / HTTP/1.1\r\n"));
        Net::Frame frame;
        EXPECT_EQ(reader.Next(frame), FrameStatus::BadMagic);
        // The stream has lost its framing: a good frame after it is not taken.
        reader.Feed(Net::EncodeFrame(SampleHeader(), {}));
        EXPECT_EQ(reader.Next(frame), FrameStatus::BadMagic);
        reader.Reset();
        reader.Feed(Net::EncodeFrame(SampleHeader(), {}));
        EXPECT_EQ(reader.Next(frame), FrameStatus::Complete);
    }
    {
        // Garbage is refused as soon as its first bytes differ from the magic.
        Net::FrameReader reader;
        reader.Feed(Bytes("TX"));
        Net::Frame frame;
        EXPECT_EQ(reader.Next(frame), FrameStatus::BadMagic);
    }
    {
        std::vector<unsigned char> frame = Net::EncodeFrame(SampleHeader(), {});
        frame[4] = 2;
        Net::FrameReader reader;
        reader.Feed(frame);
        Net::Frame out;
        EXPECT_EQ(reader.Next(out), FrameStatus::BadVersion);
        ASSERT_NE(reader.PendingHeader(), nullptr);
        EXPECT_EQ(reader.PendingHeader()->ComponentId, 161u);
    }
    {
        std::vector<unsigned char> frame = Net::EncodeFrame(SampleHeader(), {});
        frame[7] = 0x80;
        Net::FrameReader reader;
        reader.Feed(frame);
        Net::Frame out;
        EXPECT_EQ(reader.Next(out), FrameStatus::BadFlags);
    }
}

TEST(Frame, LengthBeyondTheLimitIsRefusedBeforeThePayloadComes) {
    Net::FrameHeader header = SampleHeader();
    header.PayloadLength = 101;
    const auto head = Net::EncodeHeader(header);
    Net::FrameReader reader(100);
    reader.Feed(head);
    Net::Frame frame;
    EXPECT_EQ(reader.Next(frame), FrameStatus::TooLong);

    // At the limit exactly the frame is taken; a lying length just waits for its bytes.
    header.PayloadLength = 100;
    Net::FrameReader exact(100);
    exact.Feed(Net::EncodeHeader(header));
    EXPECT_EQ(exact.Next(frame), FrameStatus::NeedMore);
    EXPECT_EQ(exact.Missing(), 100u);
    exact.Feed(std::vector<unsigned char>(99, 'x'));
    EXPECT_EQ(exact.Next(frame), FrameStatus::NeedMore);
    EXPECT_EQ(exact.Missing(), 1u);
    exact.Feed(Bytes("y"));
    EXPECT_EQ(exact.Next(frame), FrameStatus::Complete);
    EXPECT_EQ(frame.Payload.back(), 'y');
}

TEST(Address, ParsesBothFormsAndRefusesTheRest) {
    Net::Address address;
    ASSERT_TRUE(Net::Address::Parse("tcp://127.0.0.1:8080", address).Succeeded());
    EXPECT_EQ(address.Type, Net::Address::Kind::Tcp);
    EXPECT_EQ(address.Host, "127.0.0.1");
    EXPECT_EQ(address.Port, 8080);
    EXPECT_EQ(address.ToString(), "tcp://127.0.0.1:8080");

    ASSERT_TRUE(Net::Address::Parse("tcp://[::1]:0", address).Succeeded());
    EXPECT_EQ(address.Host, "::1");
    EXPECT_EQ(address.ToString(), "tcp://[::1]:0");

    ASSERT_TRUE(Net::Address::Parse("unix:/tmp/x.sock", address).Succeeded());
    EXPECT_EQ(address.Type, Net::Address::Kind::Unix);
    EXPECT_EQ(address.Path, "/tmp/x.sock");
    EXPECT_EQ(address.ToString(), "unix:/tmp/x.sock");

    for (const char* bad : {"", "unix:", "tcp://", "tcp://host", "tcp://host:", "tcp://:80",
                            "tcp://host:65536", "tcp://host:8x", "tcp://::1:80", "http://h:1",
                            "tcp://[::1:80"}) {
        const Common::Error error = Net::Address::Parse(bad, address);
        EXPECT_EQ(error.Code(), Net::kErrorBadAddress) << bad;
    }
}

}  // namespace
