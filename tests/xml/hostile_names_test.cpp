// Documents built to make the readers slow must read in time that grows with their size.
// No time is asserted here (the readers' benchmark measures it); what is checked is the work
// that decides the time: the trees are right, and names spread over the table.

#include <cstdlib>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "support/hostile_xml.h"
#include "xml/xml_store.h"
#include "xml_test_support.h"

namespace {

using xml_test::Read;

std::string DataFile(const char* name) {
    return std::string(std::getenv("TL_TEST_DATA")) + "/xml/" + name;
}

TEST(HostileNames, SparseNameNumbersReadWhole) {
    const auto r = Read(hostile_xml::SparseNameNumbers(40000, true));
    ASSERT_TRUE(r.Ok);
    ASSERT_EQ(r.Root()->Children().size(), 40000u);
    EXPECT_EQ(r.Root()->Children()[39999]->Name(), "c");
}

TEST(HostileNames, LongNameIsResolvedOncePerDefinition) {
    const std::size_t nameBytes = std::size_t{1} << 20;
    const auto r = Read(hostile_xml::RepeatedLongName(nameBytes, 20000, true));
    ASSERT_TRUE(r.Ok);
    ASSERT_EQ(r.Root()->Children().size(), 20000u);
    // Every child refers to the one interned name: equal names are one object.
    const auto first = r.Root()->Children()[0]->Name();
    EXPECT_EQ(first.size(), nameBytes);
    EXPECT_EQ(r.Root()->Children()[19999]->Name().data(), first.data());
}

TEST(HostileNames, NamesChosenToCollideWithoutAKeySpreadOverTheTable) {
    const auto names = hostile_xml::NamesOf(DataFile("colliding_names.txt"));
    ASSERT_EQ(names.size(), 30000u);
    // Without a key these all share their low 17 bits. Keyed, they fall into about as many
    // of 65,536 buckets as random names would (about 24,000).
    std::set<std::uint64_t> buckets;
    for (const std::string& name : names) {
        buckets.insert(Xml::Detail::HashName(name) & 0xffff);
    }
    EXPECT_GT(buckets.size(), 20000u);

    const auto r = Read(hostile_xml::ElementsNamed(names));
    ASSERT_TRUE(r.Ok);
    ASSERT_EQ(r.Root()->Children().size(), names.size());
    EXPECT_EQ(r.Root()->Children()[12345]->Name(), names[12345]);
}

}  // namespace
