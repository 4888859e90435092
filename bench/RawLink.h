#pragma once

#include <memory>
#include <mysql.h>
#include <string>
#include <string_view>

namespace bench {

/// The database of all measurements.
constexpr char BenchDatabase[] = "kestro_bench";

/// The login name and the socket of the private server.
std::string account();
std::string serverSocket();
/// A file of this name in the directory of the private server, which is removed with the server.
std::string besideServer(const char* name);

/// A connection of the raw C client to that database. Every failure throws std::runtime_error with
/// the server's message.
class RawLink {
public:
    /// Creates the database if it does not exist.
    explicit RawLink(unsigned long clientFlags = 0);

    MYSQL* get() const { return m_link.get(); }
    void check(bool success) const;
    /// Runs a statement.
    void run(std::string_view statement) const;
    /// Runs a statement whose result has one row, and returns the first value.
    std::string value(std::string_view statement) const;

private:
    std::unique_ptr<MYSQL, decltype(&mysql_close)> m_link{mysql_init(nullptr), mysql_close};
};

/// A result of the raw C client.
class RawResult {
public:
    /// Takes over the result, of mysql_store_result or mysql_use_result, of the last statement.
    RawResult(const RawLink& link, MYSQL_RES* result)
        : m_link(link), m_result(result, mysql_free_result)
    {
        link.check(result != nullptr);
    }

    /// Makes the next row current and returns whether there is one.
    bool fetch()
    {
        m_row = mysql_fetch_row(m_result.get());
        m_link.check(m_row != nullptr || mysql_errno(m_link.get()) == 0);
        m_lengths = mysql_fetch_lengths(m_result.get());
        return m_row != nullptr;
    }
    std::string_view operator()(int column) const { return {m_row[column], m_lengths[column]}; }

private:
    const RawLink& m_link;
    std::unique_ptr<MYSQL_RES, decltype(&mysql_free_result)> m_result;
    MYSQL_ROW m_row = nullptr;
    unsigned long* m_lengths = nullptr;
};

} // namespace bench
