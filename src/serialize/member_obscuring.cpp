// The way of secret members to and from the packet. The codecs call these two functions
// only; they forward to the process's obscurer.
//
// Seam: until the obscurer and its forwarding functions are part of the library, the text
// passes unchanged. Replace the two bodies with calls of the forwarding functions.

#include <tessel_link/serialize/codec.h>

namespace Serialization::Detail {

std::u16string ObscureMemberText(const std::u16string& text) {
    return text;
}

std::u16string UnobscureMemberText(const std::u16string& text) {
    return text;
}

}  // namespace Serialization::Detail
