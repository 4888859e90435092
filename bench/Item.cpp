#include "Item.h"

#include "RawLink.h"

namespace bench {

void makeItems(const std::string& engine)
{
    RawLink().run("CREATE OR REPLACE TABLE item (id INT PRIMARY KEY, a VARCHAR(40), b VARCHAR(40),"
                  " c VARCHAR(40), d BIGINT, e VARCHAR(40)) ENGINE=" +
                  engine);
}

std::uint64_t sumOfItems()
{
    return std::stoull(RawLink().value(
        "SELECT COALESCE(SUM(CRC32(CONCAT_WS('|', id, a, b, c, d, e))), 0) FROM item"));
}

} // namespace bench
