// The binary XML reader on arbitrary bytes: the magic is put in front, so every input takes
// the binary path.

#include <vector>

#include "xml_fuzz_support.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    xml_fuzz::SilenceAssertions();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint8_t> bytes = {'B', 'X', 'M', 'L'};
    bytes.insert(bytes.end(), data, data + size);
    xml_fuzz::ReadAndWalk(bytes.data(), bytes.size());
    return 0;
}
