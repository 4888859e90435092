// The statement of one upsert is written, without a server: 8 columns of 20 characters, two of them
// with a quote.

#include "Measure.h"

#include <KestroTableMap>
#include <array>
#include <iterator>
#include <memory>
#include <mysql.h>
#include <string>
#ifdef HAVE_FMT
#include <fmt/format.h>
#endif

using namespace bench;
using namespace Kestro;

namespace {

constexpr int Texts = 500'000;

const std::array<std::string, 8> Names = {"c0", "c1", "c2", "c3", "c4", "c5", "c6", "c7"};

std::array<std::string, 8> exampleValues()
{
    std::array<std::string, 8> values;
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = std::string(19, static_cast<char>('a' + i)) + (i % 4 == 0 ? "'" : "x");
    }
    return values;
}

// Builds the statement `texts` times, and once more for a checksum of every byte.
template <class Build> std::uint64_t repeat(int texts, const Build& build)
{
    std::uint64_t checksum = 0;
    for (const char byte : build()) {
        checksum = checksum * 31 + static_cast<unsigned char>(byte);
    }
    for (int i = 0; i < texts; ++i) {
        const std::string text = build();
        checksum = checksum * 31 + text.size() + static_cast<unsigned char>(text.back());
    }
    return checksum;
}

using Escaper = std::unique_ptr<MYSQL, decltype(&mysql_close)>;

void appendEscaped(std::string& text, MYSQL* escaper, const std::string& value)
{
    const std::size_t start = text.size();
    text.resize(start + 2 * value.size() + 1);
    text.resize(start +
                mysql_real_escape_string(escaper, text.data() + start, value.data(), value.size()));
}

std::uint64_t raw(int texts)
{
    const Escaper escaper(mysql_init(nullptr), mysql_close);
    const auto values = exampleValues();
    return repeat(texts, [&] {
        std::string assignments;
        for (std::size_t i = 0; i < Names.size(); ++i) {
            if (i > 0) {
                assignments += ',';
            }
            assignments += Names[i];
            assignments += "=\"";
            appendEscaped(assignments, escaper.get(), values[i]);
            assignments += '"';
        }
        return "INSERT INTO wide SET " + assignments + " ON DUPLICATE KEY UPDATE " + assignments;
    });
}

#ifdef HAVE_FMT
std::uint64_t withFmt(int texts)
{
    const Escaper escaper(mysql_init(nullptr), mysql_close);
    const auto values = exampleValues();
    return repeat(texts, [&] {
        std::string assignments;
        std::string escaped;
        const char* separator = "";
        for (std::size_t i = 0; i < Names.size(); ++i) {
            escaped.clear();
            appendEscaped(escaped, escaper.get(), values[i]);
            fmt::format_to(std::back_inserter(assignments), "{}{}=\"{}\"", separator, Names[i],
                           escaped);
            separator = ",";
        }
        return fmt::format("INSERT INTO wide SET {0} ON DUPLICATE KEY UPDATE {0}", assignments);
    });
}
#endif

std::uint64_t kestro(int texts)
{
    auto values = exampleValues();
    KYDBKeyVarMap columns;
    for (std::size_t i = 0; i < Names.size(); ++i) {
        columns.push_back(Names[i], values[i], KYDB_FLAG_SAVE);
    }
    return repeat(texts, [&columns] {
        const std::string assignments = columns.keyvalues(KYDB_FLAG_SAVE, ",");
        return "INSERT INTO wide SET " + assignments + " ON DUPLICATE KEY UPDATE " + assignments;
    });
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<Way> ways = {{"raw", raw}, {"kestro", kestro}};
#ifdef HAVE_FMT
    ways.push_back({"fmt", withFmt});
#endif
    return run(argc, argv, {{"500,000 texts of an upsert of 8 columns, no server", Texts, ways}});
}
