#pragma once

// Symbols of the public API are exported from libtessel_link.so; everything else is
// compiled with hidden visibility.
#define TL_API __attribute__((visibility("default")))
