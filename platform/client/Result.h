#pragma once

#include "Link.h"

namespace client {

/// What a result handle points at. Its rows are in one of three places: still on the link, with
/// nothing decided (link set, rows null); streaming from the link (both set); in memory, or all
/// gone by (link null).
struct Result {
    Link* link;
    MYSQL_RES* rows;
    int columns;
    int next = 0;                           ///< index of the row behind the current one
    MYSQL_ROW row = nullptr;                ///< the current row
    const unsigned long* lengths = nullptr; ///< of the current row, once asked for
    bool failed = false;                    ///< the rest of the rows is lost, as `failure` tells
    std::string failure;

    /// A result set that the Connector transferred.
    explicit Result(MYSQL_RES* stored);
    /// A result set whose rows stand on the link, to be transferred or streamed as it turns out.
    explicit Result(Link& pending);
    Result(const Result&) = delete;
    Result& operator=(const Result&) = delete;
    ~Result();

    bool hasColumn(int column) const
    {
        return static_cast<unsigned>(column) < static_cast<unsigned>(columns);
    }
    int rowCount();
    MYSQL_ROW fetch(int index);
    unsigned long length(int column);

    /// The link is about to be closed: rows that are still on it are lost.
    void linkCloses();

private:
    unsigned long firstLength(int column);
    void transfer();
    MYSQL_ROW step();
    void leaveLink();
    void fail(const std::string& text);
};

} // namespace client
