// The module's POR texts stand at their rows of the message table, and the errors of the
// model carry those rows.

#include <string>

#include <tessel_link/common/messages.h>

#include <gtest/gtest.h>

namespace {

struct Row {
    unsigned Number;
    const char16_t* Text;
};

// Every POR row, with the rows that no code of the library raises: they keep the positions
// of the table.
const Row kPorRows[] = {
    {350, u"POR: The array element cannot be found."},
    {351, u"POR: Cannot access array unit at '{0}' by index '{1}'."},
    {352, u"POR: Cannot cast from type '{0}' to type '{1}'."},
    {353, u"POR: Branch '{0}' cannot be found."},
    {354, u"POR: Cannot assign units with different properties."},
    {355, u"POR: Cannot assign units with different traits."},
    {356, u"POR: Cannot assign units of different types."},
    {357, u"POR: Cannot deserialize polymorph object."},
    {358, u"POR: An error occurred while deserializing the container element. No data found at '{0}[{1}]'."},
    {359, u"POR: An error occurred while deserializing the optional value. Object '{0}' is not of type 'Optional'."},
    {360, u"POR: An error occurred while deserializing the composite value. Object '{0}' is not of type 'Composite'."},
    {361, u"POR: An error occurred while deserializing the container value. Object '{0}' is not of type 'Container'."},
    {362, u"POR: An error occurred while deserializing the pointer value. Object '{0}' is not of type 'Pointer'."},
    {363, u"POR: An error occurred while deserializing property '{0}'. Object '{1}' does not have such property."},
    {364, u"POR: Cannot retrieve the source object."},
    {365, u"POR: An error occurred while deserializing trait '{0}'. Object '{1}' does not have such trait."},
    {366, u"POR: Cannot retrieve the subject version."},
    {367, u"POR: Element '{0}' cannot be found."},
    {368, u"POR: Cannot access trait '{0}' because of empty unit at path '{1}'."},
    {369, u"POR: Failed to check range inclusion."},
    {370, u"POR: An internal error has occurred."},
    {371, u"POR: Failed to merge object update."},
    {372, u"POR: Failed to merge object update.\nObject is '{0}'.\nDiff is '{1}'."},
    {373, u"POR: An invalid XML."},
    {374, u"POR: MatchTraitPattern pointer is NULL."},
    {375, u"POR: There is no unit at '{0}'."},
    {376, u"POR: The case is not implemented."},
    {377, u"POR: There was an attempt to access an uninitialized object."},
    {378, u"POR: There is no association of string to type."},
    {379, u"POR: Null units are forbidden."},
    {380, u"POR: Out of range."},
    {381, u"POR: Property '{0}' cannot be found."},
    {382, u"POR: Property '{0}' processing error has occurred."},
    {383, u"POR: An error occurred while serializing optional value '{0}'. Unrecognized node name encountered: '{1}'."},
    {384, u"POR: An error occurred while serializing pointer value '{0}'. Unrecognized node name encountered: '{1}'."},
    {385, u"POR: An error occurred while serializing '{0}'. No value was set."},
    {386, u"POR: Name '{0}' of the trait is not registered for pattern."},
    {387, u"POR: Trait '{0}' cannot be found."},
    {388, u"POR: Trait '{0}' is not unique."},
    {389, u"POR: Trying to apply diff to empty unit."},
    {390, u"POR: Expected that path '{0}' contains an array."},
    {392, u"POR: Cannot access unit at '{0}'. Unit holder is empty."},
    {393, u"POR: Unit factory cannot be found."},
    {394, u"POR: Unit object '{0}' is corrupted at position '{1}'."},
    {395, u"POR: Cannot access property by path '{0}'."},
    {396, u"POR: Trait '{0}' cannot be found at '{1}'."},
    {397, u"POR: Unit path '{0}' contains an empty token."},
    {398, u"POR: There is an invalid separator at the end of path '{0}'."},
    {399, u"POR: Beginning of unit path '{0}' contains an incorrect symbol."},
    {400, u"POR: Trying to remove missing property '{0}'."},
    {401, u"POR: Object internal structure mismatch."},
    {402, u"POR: There is a mismatch in object property '{0}'. Expected property type is '{1}', actual property type is '{2}'."},
    {403, u"POR: There is a mismatch in object internal structure. Expected object type is '{0}', actual object type is '{1}'."},
    {404, u"POR: There is a mismatch in object internal structure. Actual object of type '{0}' is not expected."},
};

TEST(Catalogue, EveryPorTextStandsAtItsRow) {
    EXPECT_EQ(std::size(kPorRows), 54u);
    for (const Row& row : kPorRows) {
        const char16_t* text = Common::GetMessageRow(row.Number);
        ASSERT_NE(text, nullptr) << row.Number;
        EXPECT_EQ(std::u16string(text), std::u16string(row.Text)) << "row " << row.Number;
    }
}

TEST(Catalogue, TheMergeFailureHasAPlainAndADetailedRow) {
    EXPECT_EQ(std::u16string(Common::GetMessageRow(371)), u"POR: Failed to merge object update.");
    const std::u16string detailed = Common::GetMessageRow(372);
    EXPECT_EQ(detailed.find(u"POR: Failed to merge object update.\n"), 0u);
    EXPECT_NE(detailed.find(u"\nDiff is '{1}'."), std::u16string::npos);
}

}  // namespace
