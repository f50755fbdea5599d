#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/serialize/xml_packet_serializer.h>
#include <tessel_link/xidl/catalogue.h>

#include "command.h"

namespace tessel_cli {
namespace {

using Serialization::Xidl::TypeInfo;
using Serialization::Xidl::TypeKind;

int PrintMembers(const TypeInfo& type) {
    if (type.Kind != TypeKind::Record && type.Kind != TypeKind::AbstractRecord) {
        return Fail(std::string(type.FullName) + " is not a record");
    }
    for (const Serialization::Xidl::MemberInfo* member : Serialization::Xidl::WireMembers(type)) {
        std::printf("%s\n", member->Name);
    }
    return 0;
}

int PrintPacket(const TypeInfo& type) {
    if (!type.Create) {
        return Fail(std::string(type.FullName) + " is not a record that can be made on its own");
    }
    std::shared_ptr<void> record = type.Create();
    std::unique_ptr<Serialization::Serializer> serializer =
        Serialization::CreateXMLPacketSerializer(2, 0);
    type.Write(*serializer, Serialization::MetaInfo("Root"), record.get());
    std::vector<unsigned char> packet;
    serializer->Finish(packet);
    std::fwrite(packet.data(), 1, packet.size(), stdout);
    std::printf("\n");
    return 0;
}

int Run(const std::string& name, bool members) {
    const TypeInfo* type = Serialization::Xidl::FindType(name);
    if (!type) {
        return Fail("unknown type " + name);
    }
    try {
        return members ? PrintMembers(*type) : PrintPacket(*type);
    } catch (const Common::Error& error) {
        return Fail("writing the record failed with error " + std::to_string(error.Code()));
    }
}

CliRun Setup(CliOptions& cli) {
    auto name = std::make_shared<std::string>();
    auto members = std::make_shared<bool>(false);
    cli.AddOption("TYPE", *name, "the type's full name").Required();
    cli.AddFlag("--members", *members, "print the member names in wire order");
    return [name, members] { return Run(*name, *members); };
}

const CliCommandRegistration kRecord(
    {"record", "TYPE [--members]", "Print the packet of a default record of TYPE, or its members.",
     "TYPE is a full name such as ArchiveManagement::SliceInfo. The packet is what a new packet\n"
     "serializer holds after the default record is written under the element \"Root\".\n"
     "--members prints the member names in wire order instead, those of base records first.",
     Setup});

}  // namespace
}  // namespace tessel_cli
