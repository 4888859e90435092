#include "Record.h"

#include "RawLink.h"

#include <bit>

namespace bench {

void add(std::uint64_t& checksum, const Record& record)
{
    const auto last = [](const std::string& text) { return text.empty() ? '\0' : text.back(); };
    for (const std::uint64_t part :
         {static_cast<std::uint64_t>(record.id), static_cast<std::uint64_t>(record.amount),
          record.name.size() + static_cast<unsigned char>(last(record.name)),
          record.text.size() + static_cast<unsigned char>(last(record.text)),
          std::bit_cast<std::uint64_t>(record.value)}) {
        checksum = checksum * 31 + part;
    }
}

void makeRecords(int rows)
{
    const std::string count = std::to_string(rows);
    // MyISAM is read fastest, so that the server's time hides least of the client's. Eighths have
    // few digits, so that every client reads the same number.
    RawLink().run("CREATE TABLE IF NOT EXISTS record_" + count +
                  " (id INT PRIMARY KEY, amount INT, name VARCHAR(20), text VARCHAR(60),"
                  " value DOUBLE) ENGINE=MyISAM"
                  " SELECT seq AS id, seq * 7919 % 100003 AS amount, CONCAT('name ', seq) AS name,"
                  " CONCAT('text of row ', seq, ' ', REPEAT('x', seq % 30)) AS text,"
                  " seq / 8e0 AS value FROM seq_1_to_" +
                  count);
}

std::string selectRecords(int rows)
{
    return "SELECT id, amount, name, text, value FROM record_" + std::to_string(rows);
}

std::string selectRecord(int rows)
{
    return selectRecords(rows) + " WHERE id = ";
}

} // namespace bench
