#pragma once

// Generated from the interface definitions by tools/xidlc; edit the definitions instead.

// Every record of the interface definitions. A host that uses a few components includes
// their headers (tessel_link/components/...) or one module's records instead.

#include <tessel_link/xidl/records/shapes.h>
