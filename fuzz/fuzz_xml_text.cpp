// The XML reader on arbitrary bytes: text, or binary when the bytes begin with its magic.

#include "xml_fuzz_support.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    xml_fuzz::SilenceAssertions();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    xml_fuzz::ReadAndWalk(data, size);
    return 0;
}
