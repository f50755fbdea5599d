// Generated from the interface definitions by tools/xidlc; edit the definitions instead.

#include <tessel_link/xidl/records/shapes.h>

#include <typeinfo>

#include <tessel_link/impl/serialize/record_meta.h>
#include <tessel_link/xidl/catalogue.h>

namespace {

using ::Serialization::Detail::Equal;

const ::Serialization::RecordMeta& Meta_Shapes_Point() {
    static const ::Serialization::RecordMeta meta({"X", "Y"});
    return meta;
}

bool MembersEqual_Shapes_Point(const ::Shapes::Point& a, const ::Shapes::Point& b) {
    return Equal(a.X, b.X)
        && Equal(a.Y, b.Y);
}

const ::Serialization::RecordMeta& Meta_Shapes_Outline() {
    static const ::Serialization::RecordMeta meta({"Corners", "Style", "Name"});
    return meta;
}

bool MembersEqual_Shapes_Outline(const ::Shapes::Outline& a, const ::Shapes::Outline& b) {
    return Equal(a.Corners, b.Corners)
        && Equal(a.Style, b.Style)
        && Equal(a.Name, b.Name);
}

constexpr ::Serialization::Xidl::EnumValueInfo kValues_Shapes_Fill[] = {{"NONE", 0}, {"SOLID", 3}, {"HATCHED", 4}};

constexpr ::Serialization::Xidl::MemberInfo kMembers_Shapes_Point[] = {
    {"X", "i32", ::Serialization::Xidl::MemberForm::I32, false, nullptr, 0},
    {"Y", "i32", ::Serialization::Xidl::MemberForm::I32, false, nullptr, 0},
};
void Delete_Shapes_Point(void* value) {
    delete static_cast<::Shapes::Point*>(value);
}
std::shared_ptr<void> Create_Shapes_Point() {
    return ::Serialization::Xidl::AdoptRecord(new ::Shapes::Point(), &Delete_Shapes_Point);
}
void Write_Shapes_Point(::Serialization::Serializer& s, const ::Serialization::MetaInfo& meta, const void* value) {
    ::Serialization::WriteMember(s, meta, *static_cast<const ::Shapes::Point*>(value));
}
void Read_Shapes_Point(::Serialization::Deserializer& d, const ::Serialization::MetaInfo& meta, void* value) {
    ::Serialization::ReadMember(d, meta, *static_cast<::Shapes::Point*>(value));
}
bool Equal_Shapes_Point(const void* a, const void* b) {
    return *static_cast<const ::Shapes::Point*>(a) == *static_cast<const ::Shapes::Point*>(b);
}

constexpr ::Serialization::Xidl::MemberInfo kMembers_Shapes_Outline[] = {
    {"Corners", "list<Shapes::Point>", ::Serialization::Xidl::MemberForm::Sequence, false, nullptr, 0},
    {"Style", "Shapes::Fill", ::Serialization::Xidl::MemberForm::Enum, false, nullptr, 0},
    {"Name", "wstring", ::Serialization::Xidl::MemberForm::WideString, false, nullptr, 0},
};
void Delete_Shapes_Outline(void* value) {
    delete static_cast<::Shapes::Outline*>(value);
}
std::shared_ptr<void> Create_Shapes_Outline() {
    return ::Serialization::Xidl::AdoptRecord(new ::Shapes::Outline(), &Delete_Shapes_Outline);
}
void Write_Shapes_Outline(::Serialization::Serializer& s, const ::Serialization::MetaInfo& meta, const void* value) {
    ::Serialization::WriteMember(s, meta, *static_cast<const ::Shapes::Outline*>(value));
}
void Read_Shapes_Outline(::Serialization::Deserializer& d, const ::Serialization::MetaInfo& meta, void* value) {
    ::Serialization::ReadMember(d, meta, *static_cast<::Shapes::Outline*>(value));
}
bool Equal_Shapes_Outline(const void* a, const void* b) {
    return *static_cast<const ::Shapes::Outline*>(a) == *static_cast<const ::Shapes::Outline*>(b);
}

}  // namespace

namespace Shapes {
::Serialization::Serializer& operator<<(::Serialization::Serializer& s, const Point& value) {
    const ::Serialization::RecordMeta& meta = Meta_Shapes_Point();
    ::Serialization::WriteMember(s, meta.Write(0), value.X);
    ::Serialization::WriteMember(s, meta.Write(1), value.Y);
    return s;
}

::Serialization::Deserializer& operator>>(::Serialization::Deserializer& d, Point& value) {
    const ::Serialization::RecordMeta& meta = Meta_Shapes_Point();
    ::Serialization::ReadMember(d, meta.Read(0), value.X);
    ::Serialization::ReadMember(d, meta.Read(1), value.Y);
    return d;
}

bool operator==(const Point& a, const Point& b) {
    return MembersEqual_Shapes_Point(a, b);
}

::Serialization::Serializer& operator<<(::Serialization::Serializer& s, const Outline& value) {
    const ::Serialization::RecordMeta& meta = Meta_Shapes_Outline();
    ::Serialization::WriteMember(s, meta.Write(0), value.Corners);
    ::Serialization::WriteMember(s, meta.Write(1), value.Style);
    ::Serialization::WriteMember(s, meta.Write(2), value.Name);
    return s;
}

::Serialization::Deserializer& operator>>(::Serialization::Deserializer& d, Outline& value) {
    const ::Serialization::RecordMeta& meta = Meta_Shapes_Outline();
    ::Serialization::ReadMember(d, meta.Read(0), value.Corners);
    ::Serialization::ReadMember(d, meta.Read(1), value.Style);
    ::Serialization::ReadMember(d, meta.Read(2), value.Name);
    return d;
}

bool operator==(const Outline& a, const Outline& b) {
    return MembersEqual_Shapes_Outline(a, b);
}

}  // namespace Shapes

namespace Serialization {
const char* EnumCodec<::Shapes::Fill>::Name(::Shapes::Fill value) {
    switch (value) {
    case ::Shapes::Fill::NONE:
        return "NONE";
    case ::Shapes::Fill::SOLID:
        return "SOLID";
    case ::Shapes::Fill::HATCHED:
        return "HATCHED";
    }
    return nullptr;
}

bool EnumCodec<::Shapes::Fill>::Parse(const std::string& text, ::Shapes::Fill& value) {
    if (text == "NONE") {
        value = ::Shapes::Fill::NONE;
        return true;
    }
    if (text == "SOLID") {
        value = ::Shapes::Fill::SOLID;
        return true;
    }
    if (text == "HATCHED") {
        value = ::Shapes::Fill::HATCHED;
        return true;
    }
    return false;
}

}  // namespace Serialization

namespace Serialization::Xidl::Generated {
extern const TypeInfo kTypes_shapes[] = {
    {"Shapes::Fill", TypeKind::Enumeration, 0, nullptr, nullptr, 0, kValues_Shapes_Fill, 3, nullptr, nullptr, nullptr, nullptr},
    {"Shapes::Point", TypeKind::Record, 2, nullptr, kMembers_Shapes_Point, 2, nullptr, 0, Create_Shapes_Point, Write_Shapes_Point, Read_Shapes_Point, Equal_Shapes_Point},
    {"Shapes::Outline", TypeKind::Record, 1, nullptr, kMembers_Shapes_Outline, 3, nullptr, 0, Create_Shapes_Outline, Write_Shapes_Outline, Read_Shapes_Outline, Equal_Shapes_Outline},
};
extern const std::size_t kTypeCount_shapes = 3;
}  // namespace Serialization::Xidl::Generated

