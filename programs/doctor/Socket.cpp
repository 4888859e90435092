#include "Socket.h"

#include "ServerSocket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace doctor {

namespace {

constexpr std::size_t PathLimit = sizeof(sockaddr_un::sun_path) - 1; // bytes

bool isSocket(const std::string& path)
{
    struct stat file {};
    return stat(path.c_str(), &file) == 0 && S_ISSOCK(file.st_mode);
}

std::string adviceForMissing(const std::vector<programs::SocketPlace>& places, std::size_t used)
{
    for (std::size_t i = used + 1; i < places.size(); ++i) {
        if (isSocket(places[i].path)) {
            return "there is a socket at " + places[i].path +
                   (used == 0 ? ": unset MYSQL_UNIX_PORT to use it"
                              : ": name it in MYSQL_UNIX_PORT to use it");
        }
    }
    return "start the server (systemctl start mariadb), or name its socket in MYSQL_UNIX_PORT: "
           "\"socket\" in the server's option files names it";
}

} // namespace

Finding socketFinding()
{
    const std::vector<programs::SocketPlace> known = programs::socketPlaces();
    const std::size_t used = programs::socketInUse(known);
    const std::string& path = known[used].path;
    const auto finding = [&](Severity severity, const std::string& what,
                             const std::string& advice) {
        return Finding{severity, "socket", path + ", " + known[used].origin + what, advice};
    };

    struct stat file {};
    if (path.size() > PathLimit) {
        return finding(Severity::Bad, ": a path of " + std::to_string(path.size()) + " bytes",
                       "a socket's path has at most " + std::to_string(PathLimit) +
                           " bytes: change \"socket\" in the server's option files");
    }
    if (stat(path.c_str(), &file) != 0) {
        const int error = errno;
        return finding(Severity::Bad, std::string(": ") + std::strerror(error),
                       error == EACCES ? "let this user enter the directories of the path"
                                       : adviceForMissing(known, used));
    }
    if (!S_ISSOCK(file.st_mode)) {
        return finding(Severity::Bad, ": no socket, but another kind of file",
                       adviceForMissing(known, used));
    }
    if (faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) {
        return finding(Severity::Bad, ": this user may not write to it",
                       "chmod a+w the socket, as the server does when it starts");
    }
    return finding(Severity::Ok, "", "");
}

} // namespace doctor
