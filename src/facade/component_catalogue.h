#pragma once

// The catalogue is public; generated code and the tool include it from here as before.
#include <tessel_link/facade/catalogue.h>
