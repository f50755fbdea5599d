#pragma once

#include <vector>

#include <tessel_link/common/messages.h>

namespace Common::Detail {

// Reads a replacement message table ("tessel_link.msg" of the module's data archive) whole.
// Returns false when there is none; the caller validates the block.
bool ReadReplacementMessageTable(std::vector<unsigned char>& block);

// The table in use if it has been loaded already, else an empty block. Never loads: error
// records ask it whether a text lies inside the table, and the load itself may make errors.
MessageTableBlock PeekLoadedMessageTable() noexcept;

}  // namespace Common::Detail
