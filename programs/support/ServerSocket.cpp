#include "ServerSocket.h"

#include <Kestro/Database/Connection.h>

#include <cstdlib>
#include <mariadb_version.h>
#include <unistd.h>

namespace programs {

std::vector<SocketPlace> socketPlaces()
{
    const char* named = std::getenv("MYSQL_UNIX_PORT");
    return {{named != nullptr ? named : "", "named by MYSQL_UNIX_PORT"},
            {Kestro::Database::Connection::SocketName, "the system's"},
            {MARIADB_UNIX_ADDR, "the Connector's default"}};
}

std::size_t socketInUse(const std::vector<SocketPlace>& places)
{
    if (!places[0].path.empty()) {
        return 0;
    }
    return access(places[1].path.c_str(), F_OK) == 0 ? 1 : 2;
}

} // namespace programs
