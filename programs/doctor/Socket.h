#pragma once

#include "Finding.h"

namespace doctor {

/// Checks the socket that the library uses in this environment (see db_client.h): whether it
/// exists, is a socket, and may be used by this process. Only a connection shows whether a server
/// listens.
Finding socketFinding();

} // namespace doctor
