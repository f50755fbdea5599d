#include "common/message_table_source.h"

namespace Common::Detail {

// The module's data archive is not read yet: the built-in table is always in force.
bool ReadReplacementMessageTable(std::vector<unsigned char>& /*block*/) {
    return false;
}

}  // namespace Common::Detail
