#include <tessel_link/facade/entry_points.h>
#include <tessel_link/por/compare.h>
#include <tessel_link/por/construction.h>
#include <tessel_link/por/in_memory_factory.h>
#include "por/serialize/record_to_unit.h"
#include <tessel_link/por/util.h>
#include <tessel_link/serialize/obscurer.h>
#include <tessel_link/xidl/catalogue.h>
#include <tessel_link/xidl/records.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Keeps what the library tells it; throws instead of taking the name at position `failAt`.
class Recorder : public Core::XidlTypeRegistrar {
public:
    bool RegisterType(const std::string& typeName, Core::XidlTypeCreator creator) override {
        if (names.size() == failAt) {
            throw std::runtime_error("the host's table is full");
        }
        names.push_back(typeName);
        creators.push_back(creator);
        return false;
    }

    std::vector<std::string> names;
    std::vector<Core::XidlTypeCreator> creators;
    std::size_t failAt = static_cast<std::size_t>(-1);
};

std::vector<std::string> ExpectedNames() {
    const char* data = std::getenv("TL_TEST_DATA");
    std::vector<std::string> names;
    if (data == nullptr) {
        return names;
    }
    std::ifstream in(std::string(data) + "/cli/type_names.txt");
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) {
            names.push_back(line);
        }
    }
    return names;
}

std::vector<std::string> PropertyNames(const Por::View::Unit& unit) {
    std::vector<std::string> names;
    auto collect = Por::MakeProcessor<const Por::View::Property>(
        [&](const Por::View::Property& p) { names.emplace_back(p.GetName().Text()); });
    Por::Util::AsComposite(unit).ForEach(collect);
    return names;
}

TEST(CheckInXIDLTypes, EveryNameOnceInTheFixedOrderWithItsCreator) {
    Recorder registrar;
    CheckInXIDLTypes(&registrar);

    const std::vector<std::string> expected = ExpectedNames();
    ASSERT_EQ(expected.size(), 635u) << "TL_TEST_DATA/cli/type_names.txt is missing";
    EXPECT_EQ(registrar.names, expected);  // names of three levels come whole
    ASSERT_FALSE(registrar.names.empty());
    EXPECT_EQ(registrar.names.front(), "Tol::ActivityOrigin");
    EXPECT_EQ(std::set<std::string>(registrar.names.begin(), registrar.names.end()).size(), 635u);
    const std::set<Core::XidlTypeCreator> creators(registrar.creators.begin(),
                                                   registrar.creators.end());
    EXPECT_EQ(creators.size(), 635u);  // one creator per type, none null
    EXPECT_EQ(creators.count(nullptr), 0u);

    // Without state: a second check-in tells the same again.
    Recorder again;
    CheckInXIDLTypes(&again);
    EXPECT_EQ(again.names, registrar.names);
    EXPECT_EQ(again.creators, registrar.creators);
}

TEST(CheckInXIDLTypes, AnExceptionOfTheRegistrarEndsTheCheckIn) {
    Recorder registrar;
    registrar.failAt = 3;
    EXPECT_THROW(CheckInXIDLTypes(&registrar), std::runtime_error);
    EXPECT_EQ(registrar.names.size(), 3u);
}

// Every creator is checked against the catalogue: the default record under "Root" is a
// composite with one property per member, and a versioned type says its version.
TEST(XidlTypeCreator, EachMakesTheTreeOfADefaultRecordOfItsType) {
    Recorder registrar;
    CheckInXIDLTypes(&registrar);
    ASSERT_EQ(registrar.names.size(), registrar.creators.size());
    Por::Construction::InMemoryUnitFactory factory;
    for (std::size_t i = 0; i < registrar.names.size(); ++i) {
        SCOPED_TRACE(registrar.names[i]);
        const Serialization::Xidl::TypeInfo* type = Serialization::Xidl::FindType(registrar.names[i]);
        ASSERT_NE(type, nullptr);
        Por::UnitPtr slot = factory.CreateNil();  // whatever the slot held goes
        Por::UnitPtr& returned = registrar.creators[i](slot);
        EXPECT_EQ(&returned, &slot);
        ASSERT_NE(slot, nullptr);
        ASSERT_TRUE(Por::Util::IsComposite(*slot));
        std::vector<std::string> members;
        for (const Serialization::Xidl::MemberInfo* m : Serialization::Xidl::WireMembers(*type)) {
            members.emplace_back(m->Name);
        }
        std::vector<std::string> properties = PropertyNames(*slot);
        std::sort(properties.begin(), properties.end());
        std::sort(members.begin(), members.end());
        EXPECT_EQ(properties, members);
        if (type->Version != 0) {
            EXPECT_TRUE(Por::Util::HasTraitWithValue(*slot, "Version",
                                                     *factory.CreateQword(type->Version)));
        } else {
            EXPECT_FALSE(Por::Util::HasTrait(*slot, "Version"));
        }
    }
}

TEST(XidlTypeCreator, TwoCallsMakeTwoIndependentTrees) {
    Recorder registrar;
    CheckInXIDLTypes(&registrar);
    ASSERT_FALSE(registrar.creators.empty());
    Por::UnitPtr first;
    Por::UnitPtr second;
    registrar.creators.front()(first);
    registrar.creators.front()(second);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first.get(), second.get());
    EXPECT_TRUE(Por::Util::UnitEqual(*first, *second));
    Por::Construction::InMemoryUnitFactory factory;
    Por::Util::AddProperty(*first, "Extra", factory.CreateNil(), factory);
    EXPECT_FALSE(Por::Util::UnitEqual(*first, *second));
}

TEST(RecordToUnit, ARecordWithValuesKeepsThemAndTheTraitsOfItsMembers) {
    Connectivity::Logon logon;
    logon.Computer = "host";
    logon.User = u"operator";
    logon.Port = 443;
    Por::Construction::InMemoryUnitFactory factory;
    Por::UnitPtr result = factory.CreateNil();  // replaced, not added to
    Por::Serialization::RecordToUnit(result, logon, factory);
    ASSERT_NE(result, nullptr);
    EXPECT_FALSE(Por::Util::HasTrait(*result, "Version"));  // the module is unversioned

    // The member trait travels with the value, which is what its codec writes: obscured.
    const Por::View::Property* user = Por::Util::GetProperty(*result, "User");
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(Por::Util::GetStringValue(user->GetUnit()), Serialization::Obscure(u"operator"));
    EXPECT_TRUE(Por::Util::HasTrait(user->GetUnit(), "Obscured"));
    const Por::View::Property* computer = Por::Util::GetProperty(*result, "Computer");
    ASSERT_NE(computer, nullptr);
    EXPECT_EQ(Por::Util::GetStringValue(computer->GetUnit()), u"host");
    EXPECT_FALSE(Por::Util::HasTraits(computer->GetUnit()));
    const Por::View::Property* port = Por::Util::GetProperty(*result, "Port");
    ASSERT_NE(port, nullptr);
    EXPECT_TRUE(Por::Util::HasTraitWithValue(port->GetUnit(), "IsOptional",
                                             *factory.CreateString(u"optional_type")));
    EXPECT_TRUE(Por::Util::HasTraitWithValue(port->GetUnit(), "is_null", *factory.CreateBoolean(false)));
}

}  // namespace
