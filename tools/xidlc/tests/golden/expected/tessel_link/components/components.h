#pragma once

// Generated from the component definitions by tools/xidlc; edit the definitions instead.

// The interfaces of all remote components.

#include <tessel_link/components/shapes.h>
