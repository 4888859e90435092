#include "RawLink.h"

#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <stdexcept>
#include <unistd.h>

namespace bench {

std::string account()
{
    const passwd* user = getpwuid(geteuid());
    return user != nullptr ? user->pw_name : "";
}

std::string serverSocket()
{
    const char* path = std::getenv("MYSQL_UNIX_PORT");
    if (path == nullptr) {
        throw std::runtime_error("MYSQL_UNIX_PORT is not set: see ./dev server");
    }
    return path;
}

std::string besideServer(const char* name)
{
    return std::filesystem::path(serverSocket()).replace_filename(name);
}

RawLink::RawLink(unsigned long clientFlags)
{
    mysql_options(get(), MYSQL_SET_CHARSET_NAME, "utf8mb4");
    check(mysql_real_connect(get(), nullptr, nullptr, nullptr, nullptr, 0, serverSocket().c_str(),
                             clientFlags) != nullptr);
    if (mysql_select_db(get(), BenchDatabase) != 0) {
        run(std::string("CREATE DATABASE ") + BenchDatabase);
        check(mysql_select_db(get(), BenchDatabase) == 0);
    }
}

void RawLink::check(bool success) const
{
    if (!success) {
        throw std::runtime_error(mysql_error(m_link.get()));
    }
}

void RawLink::run(std::string_view statement) const
{
    check(mysql_real_query(get(), statement.data(), statement.size()) == 0);
}

std::string RawLink::value(std::string_view statement) const
{
    run(statement);
    RawResult result(*this, mysql_store_result(get()));
    check(result.fetch());
    return std::string(result(0));
}

} // namespace bench
