#pragma once

#include <KestroDatabase>
#include <KestroTableMap>
#include <string>

/// A record of a table "item" (number BIGINT, text VARCHAR(60)).
struct Item : Kestro::KYDBTableSimple {
    Kestro::KYDBDatabase& handle;
    long number = 0;
    std::string text = "it's \"saved\"";

    explicit Item(Kestro::KYDBDatabase& database) : handle(database) {}

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            table_name("item");
            DBDatabase(&handle);
            m_dbmap.push_back("number", number, Kestro::KYDB_FLAG_KEY | Kestro::KYDB_FLAG_SAVE)
                .push_back("text", text, Kestro::KYDB_FLAG_SAVE);
        }
    }
};

/// Runs a statement; throws what Query::execute() throws.
inline void execute(Kestro::Database::Connection& connection, const std::string& text,
                    Kestro::Database::RowParser* parser = nullptr, bool store = true)
{
    Kestro::Database::Query query(connection, parser, store);
    query << text;
    query.execute();
}
