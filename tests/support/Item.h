#pragma once

#include <KestroDatabase>
#include <KestroTableMap>
#include <string>

/// A record of a table "item" (number BIGINT, text VARBINARY(600), note VARBINARY(300)), found by
/// its text.
struct Item : Kestro::KYDBTableSimple {
    long number = 0;
    std::string text = "it's \"saved\"";
    char note[300] = "";

    /// fetchAll() makes records without a database and sets it afterwards.
    explicit Item(Kestro::KYDBDatabase* database = nullptr) { DBDatabase(database); }

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            table_name("item");
            m_dbmap.push_back("number", number, Kestro::KYDB_FLAG_SAVE)
                .push_back("text", text, Kestro::KYDB_FLAG_KEY | Kestro::KYDB_FLAG_SAVE)
                .push_back("note", note, sizeof note, Kestro::KYDB_FLAG_SAVE);
        }
    }
};
