// What generated proxy methods put into their requests and take from their replies: the
// argument kinds of the interface definitions decide it, method by method.

#include <tessel_link/common/unicode.h>
#include <tessel_link/serialize/obscurer.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tessel_link/testing/scripted_channel.h>
#include "xidl/components/archive_management_proxy.h"
#include "xidl/components/file_management_proxy.h"
#include "xidl/components/log_view_management_proxy.h"
#include "xidl/components/machine_management_proxy.h"
#include "xidl/components/report_management_proxy.h"
#include "xidl/components/storage_server_proxy.h"

namespace {

using Testing::Element;
using Testing::Node;
using Testing::ValueNode;

class GeneratedCall : public ::testing::Test {
protected:
    std::shared_ptr<Testing::ScriptedChannel> channel = std::make_shared<Testing::ScriptedChannel>();

    const Node& Sent() const { return channel->Written.Children.at(0); }

    Node Reply(const std::string& element, Common::Error result, std::vector<Node> values) {
        values.insert(values.begin(), ValueNode("result", std::move(result)));
        return Element(element, std::move(values));
    }
};

TEST_F(GeneratedCall, ObscuredPasswordIsNeverSentInClear) {
    ArchiveManagement::ArchiveManager_Proxy proxy(channel);
    const std::u16string secret = u"archive s3cret";
    ASSERT_TRUE(proxy.Consolidate(u"bsp://vault/a", secret, AccessManagement::Logon(u"u", u"p"),
                                  ArchiveManagement::ConsolidateOptions{})
                    .Succeeded());
    EXPECT_EQ(channel->ComponentID, 161u);
    EXPECT_EQ(channel->MethodNumber, 15u);
    const Node& sent = Sent();
    EXPECT_EQ(sent.Name, "request_ArchiveManager_Consolidate");
    EXPECT_EQ(sent.ChildNames(), (std::vector<std::string>{"targetUri", "archivePassword",
                                                            "locationCredential", "options"}));
    const auto* written = sent.ValueOf<std::u16string>("archivePassword");
    ASSERT_NE(written, nullptr);
    EXPECT_EQ(written->find(u"s3cret"), std::u16string::npos);
    EXPECT_EQ(Serialization::Unobscure(*written), secret);
    // Credentials are not obscured arguments: they go as they stand.
    const Node* logon = sent.Child("locationCredential");
    ASSERT_NE(logon, nullptr);
    EXPECT_EQ(logon->ChildNames(), (std::vector<std::string>{"UserName", "Password"}));
    EXPECT_EQ(*logon->ValueOf<std::u16string>("Password"), u"p");
}

TEST_F(GeneratedCall, OutArgumentsStayOutOfTheRequest) {
    MachineManagement::MachineManager_Proxy machines(channel);
    Common::Guid id{};
    id.Data1 = 0x1234;
    ASSERT_TRUE(machines.GetMachineID(id).Succeeded());
    EXPECT_TRUE(Sent().Children.empty());

    ReportManagement::ReportManager_Proxy reports(channel);
    ReportManagement::ReportResult result;
    ASSERT_TRUE(reports.ReportTasks(ReportManagement::TaskReportParameters{}, result).Succeeded());
    EXPECT_EQ(Sent().ChildNames(), std::vector<std::string>{"params"});

    // A non-constant reference of the default kind is sent and comes back.
    FileManagement::FileManager_Proxy files(channel);
    std::vector<unsigned char> content{1, 2, 3};
    ASSERT_TRUE(files.ReadFile(u"/etc/hosts", AccessManagement::Logon(), content, 16, 32).Succeeded());
    EXPECT_EQ(Sent().ChildNames(), (std::vector<std::string>{"path", "credentials", "offset", "size"}));
}

TEST_F(GeneratedCall, ReplyFillsWhatComesBack) {
    LogViewManagement::LogViewManager_Proxy logs(channel);
    channel->Reply = Reply("reply_LogViewManager_GetLogs", Common::ErrorSuccess,
                           {ValueNode("totalRows", std::uint32_t{42})});
    std::uint32_t totalRows = 7;
    std::list<LogViewManagement::LogRow> rows;
    ASSERT_TRUE(logs.GetLogs(LogViewManagement::RowSelection{}, totalRows, rows).Succeeded());
    // in and out: sent as it was, then replaced by the reply's value
    EXPECT_EQ(*Sent().ValueOf<std::uint32_t>("totalRows"), 7u);
    EXPECT_EQ(totalRows, 42u);
    // absent from the reply: left as it was
    EXPECT_TRUE(rows.empty());
}

TEST_F(GeneratedCall, FailedCallLeavesEveryOutArgumentAlone) {
    StorageServer::Control_Proxy control(channel);
    const Common::Error failure(TL_ORIGIN("Probe"), 0xb90003);
    channel->Reply = Reply("reply_Control_GetVaultUsers", failure,
                           {Element("adminIDs", {Element("vector", {ValueNode("item", std::u16string(u"x"))})})});
    channel->RunResult = failure;
    std::vector<std::u16string> admins{u"admin"};
    std::vector<std::u16string> users{u"user"};
    EXPECT_EQ(control.GetVaultUsers(u"bsp://vault", admins, users).Code(), 0xb90003u);
    EXPECT_EQ(admins, std::vector<std::u16string>{u"admin"});
    EXPECT_EQ(users, std::vector<std::u16string>{u"user"});

    channel->Reply.reset();
    channel->SendResult = failure;
    EXPECT_EQ(control.GetVaultUsers(u"bsp://vault", admins, users).Code(), 0xb90003u);
    EXPECT_EQ(admins, std::vector<std::u16string>{u"admin"});
}

}  // namespace
