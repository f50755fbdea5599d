// Unit blobs arrive from the service as request and reply values: any bytes must give a tree
// or the corruption error, never a crash, and a tree that was read must write a blob that
// reads back to a tree with the very same bytes. (Bytes, not UnitEqual: a NaN is equal to
// nothing.)

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <vector>

#include <tessel_link/por/binary_form.h>
#include <tessel_link/por/in_memory_factory.h>
#include <tessel_link/por/print.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Por::Construction::UnitFactory& factory = Por::Construction::GetProcessUnitFactory();
    Por::UnitPtr unit;
    try {
        unit = Por::Util::ReadBlob(data, size, factory);
    } catch (const Common::Error& error) {
        if (error.Code() != 0xfa0021) {
            std::abort();  // every failure of a read is the corruption error
        }
        return 0;
    }
    if (!unit) {
        if (size != 0) {
            std::abort();
        }
        return 0;
    }
    std::ostringstream text;
    Por::Util::Print(*unit, "", text);
    std::vector<unsigned char> again;
    Por::Util::WriteBlob(*unit, again);
    const Por::UnitPtr back = Por::Util::ReadBlob(again, factory);
    std::vector<unsigned char> third;
    Por::Util::WriteBlob(*back, third);
    if (third != again) {
        std::abort();
    }
    return 0;
}
