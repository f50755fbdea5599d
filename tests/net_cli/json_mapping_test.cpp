#include <gtest/gtest.h>

#include <list>
#include <map>
#include <vector>

#include <tessel_link/serialize/credentials.h>
#include <tessel_link/xidl/records.h>

#include "json_mapping.h"

namespace {

using tessel_cli::Json;
using tessel_cli::JsonMismatch;
using tessel_cli::JsonReader;
using tessel_cli::JsonWriter;

template <class T>
Json ToJson(const T& value) {
    JsonWriter writer;
    writer.Put("v", value);
    return writer.Result()["v"];
}

template <class T>
T FromJson(const Json& json, T value = T{}) {
    const Json wrapped = Json{{"v", json}};
    JsonReader reader(wrapped);
    reader.Take("v", value);
    return value;
}

ArchiveManagement::ArchiveInfo SampleInfo() {
    tessel_cli::EnumerationNames().insert("ArchiveEncryptionAlgorithm");
    ArchiveManagement::ArchiveInfo info;
    info.ArchiveUri = u"loc/\u00e4rchive";
    info.Type = 7;
    info.CreationTime = -5;
    info.Size = 0xffffffffffffull;
    info.Settings.Name = u"n";
    info.Settings.ProtectedByPassword = true;
    info.Settings.EncryptionAlgorithm = static_cast<ArchiveManagement::ArchiveEncryptionAlgorithm>(1);
    info.Settings.CleanupRules.SimpleCleanup.BackupsToKeep.Value = 9;
    info.Settings.Attributes = {{u"color", u"blue"}, {u"empty", u""}};
    return info;
}

TEST(JsonMapping, RecordsWithNestedRecordsMapsAndEnumerationsGoAndComeBack) {
    const ArchiveManagement::ArchiveInfo info = SampleInfo();
    const Json json = ToJson(info);
    EXPECT_EQ(json["ArchiveUri"], "loc/\u00e4rchive");
    EXPECT_EQ(json["Size"], 0xffffffffffffull);
    EXPECT_EQ(json["CreationTime"], -5);
    EXPECT_EQ(json["Settings"]["Attributes"], (Json{{"color", "blue"}, {"empty", ""}}));
    EXPECT_EQ(json["Settings"]["CleanupRules"]["SimpleCleanup"]["BackupsToKeep"]["Value"], 9);
    // An enumeration is the name of its value.
    ASSERT_TRUE(json["Settings"]["EncryptionAlgorithm"].is_string());
    EXPECT_FALSE(json["Settings"]["EncryptionAlgorithm"].get<std::string>().empty());
    EXPECT_TRUE(FromJson<ArchiveManagement::ArchiveInfo>(json) == info);

    const std::vector<ArchiveManagement::ArchiveInfo> many{info, ArchiveManagement::ArchiveInfo{}};
    const Json array = ToJson(many);
    ASSERT_TRUE(array.is_array());
    EXPECT_EQ(array.size(), 2u);
    EXPECT_TRUE(FromJson<std::vector<ArchiveManagement::ArchiveInfo>>(array) == many);
}

TEST(JsonMapping, OptionalsGuidsMapsWithOtherKeysAndBytes) {
    Core::Optional<ArchiveManagement::ArchiveSecurity> security;
    EXPECT_TRUE(ToJson(security).is_null());
    ArchiveManagement::ArchiveSecurity owner;
    owner.OwnerName = u"ann";
    security = owner;
    EXPECT_EQ(ToJson(security)["OwnerName"], "ann");
    EXPECT_EQ(FromJson<decltype(security)>(ToJson(security)).Get().OwnerName, u"ann");
    // null reads as an empty optional even over a filled one.
    EXPECT_TRUE(FromJson<decltype(security)>(Json(nullptr), security).IsNull());

    Common::Guid a;
    Common::Guid b;
    ASSERT_TRUE(Common::Create(a) && Common::Create(b));
    const std::list<Common::Guid> ids{a, b};
    const Json idsJson = ToJson(ids);
    EXPECT_EQ(idsJson[0], Common::ToString(a));
    EXPECT_TRUE(FromJson<std::list<Common::Guid>>(idsJson) == ids);

    // GUID keys are strings; number keys make an array of pairs.
    const std::map<Common::Guid, bool> byGuid{{a, true}, {b, false}};
    EXPECT_TRUE(ToJson(byGuid).is_object());
    EXPECT_TRUE((FromJson<std::map<Common::Guid, bool>>(ToJson(byGuid)) == byGuid));
    const std::map<std::uint32_t, std::string> byNumber{{1, "one"}, {20, "twenty"}};
    const Json pairs = ToJson(byNumber);
    ASSERT_TRUE(pairs.is_array());
    EXPECT_EQ(pairs[1], (Json{{"first", 20}, {"second", "twenty"}}));
    EXPECT_TRUE((FromJson<std::map<std::uint32_t, std::string>>(pairs) == byNumber));

    const std::vector<unsigned char> bytes{0, 1, 2, 250};
    EXPECT_EQ(ToJson(bytes), "AAEC+g==");
    EXPECT_EQ(FromJson<std::vector<unsigned char>>(ToJson(bytes)), bytes);
}

TEST(JsonMapping, SecretsArePlainInJsonOnly) {
    AccessManagement::ObjectKey key;
    key.Ticket = u"t1cket";
    const Json json = ToJson(key);
    EXPECT_EQ(json["Ticket"], "t1cket");
    EXPECT_EQ(FromJson<AccessManagement::ObjectKey>(json).Ticket, u"t1cket");
    const AccessManagement::Logon logon(u"ann", u"pw");
    EXPECT_EQ(ToJson(logon), (Json{{"UserName", "ann"}, {"Password", "pw"}}));
    EXPECT_EQ(FromJson<AccessManagement::Logon>(ToJson(logon)), logon);
    // Outside the JSON ends the thread obscures again.
    EXPECT_NE(Serialization::Obscure(u"t1cket"), u"t1cket");
}

TEST(JsonMapping, MissingMembersTakeTheirDefaultsAndWrongTypesAreNamed) {
    const ArchiveManagement::ArchiveInfo read =
        FromJson<ArchiveManagement::ArchiveInfo>(Json{{"Type", 8}, {"Settings", {{"Name", "x"}}}});
    EXPECT_EQ(read.Type, 8u);
    EXPECT_EQ(read.Settings.Name, u"x");
    ArchiveManagement::ArchiveInfo expected;
    expected.Type = 8;
    expected.Settings.Name = u"x";
    EXPECT_TRUE(read == expected);

    const auto refused = [](const Json& json) -> std::string {
        try {
            FromJson<ArchiveManagement::ArchiveInfo>(json);
        } catch (const JsonMismatch& mismatch) {
            return mismatch.what();
        }
        return "accepted";
    };
    EXPECT_EQ(refused(Json{{"Type", "seven"}}), "$.v.Type: expected an integer, found string");
    EXPECT_EQ(refused(Json{{"Type", -1}}), "$.v.Type: -1 is out of range");
    EXPECT_EQ(refused(Json{{"Settings", {{"Name", 5}}}}), "$.v.Settings.Name: expected a string, found number");
    EXPECT_EQ(refused(Json{{"Settings", {{"Attributes", 5}}}}),
              "$.v.Settings.Attributes: expected an object or an array of pairs, found number");
    EXPECT_EQ(refused(Json{{"Settings", {{"ProtectedByPassword", 1}}}}),
              "$.v.Settings.ProtectedByPassword: expected true or false, found number");
    EXPECT_THROW(FromJson<std::vector<std::string>>(Json{{"a", 1}}), JsonMismatch);
    EXPECT_THROW(FromJson<std::list<Common::Guid>>(Json{"not-a-guid"}), JsonMismatch);
}

TEST(JsonMapping, ErrorsCarryTheirChain) {
    Common::Error error(TL_ORIGIN("test"), 0x9c0044, "outer");
    error.AddCause(Common::Error(TL_ORIGIN("test"), 0x20000001, "inner"));
    const Json json = tessel_cli::ErrorToJson(error);
    EXPECT_EQ(json, (Json{{"code", 0x9c0044}, {"text", "outer"}, {"cause", {{"code", 0x20000001}, {"text", "inner"}}}}));
    const Common::Error back = tessel_cli::ErrorFromJson(json, "$");
    EXPECT_EQ(back.Code(), 0x9c0044u);
    EXPECT_EQ(back.Cause().Code(), 0x20000001u);
    EXPECT_EQ(back.Cause().Text(), u"inner");
    EXPECT_EQ(tessel_cli::ErrorToJson(Common::ErrorSuccess), (Json{{"code", 0}, {"text", ""}}));
}

}  // namespace
