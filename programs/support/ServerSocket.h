#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace programs {

/// A place where the library looks for the server's socket (see db_client.h).
struct SocketPlace {
    std::string path;   ///< may be empty for the environment variable's
    std::string origin; ///< who names it
};

/// The three places, in the order in which the library asks them.
std::vector<SocketPlace> socketPlaces();
/// The index of the place whose socket the library takes in this environment.
std::size_t socketInUse(const std::vector<SocketPlace>& places);

} // namespace programs
