#pragma once

// Symbols of the network companion's API are exported from libtessel_link_net.so; the rest
// of it is compiled with hidden visibility, as the core library is.
#define TL_NET_API __attribute__((visibility("default")))
