#pragma once

#include <tessel_link/binding/job_control.h>

#include "platform/late_binding.h"

namespace Binding::Detail {

// The short name under which the host's transport library is configured.
inline constexpr const char kTransportLibrary[] = "ipc_client";

// Looks the host's time-out function up: in the process first, then in the transport
// library when the configuration names one. Null when neither has it; a library that fails
// to load or lacks the function is traced and treated as absent.
SetJobTimeoutFunction* ResolveSetJobTimeout(Platform::LateBinding& binding);

// The host's time-out function, resolved once through the process's binding.
SetJobTimeoutFunction* HostSetJobTimeout();

}  // namespace Binding::Detail
