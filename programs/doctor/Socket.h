#pragma once

#include "Finding.h"

namespace doctor {

/// Looks at the socket that the library takes in this environment (see db_client.h): whether it is
/// there, is a socket, and may be used by this process. Whether somebody listens, only a connection
/// tells.
Finding socketFinding();

} // namespace doctor
