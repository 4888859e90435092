#include <Kestro/Database/TableName.h>

namespace Kestro::Database {

TableName::TableName(const std::string& text, bool isFqn)
{
    parse(text, isFqn);
}

TableName::~TableName() = default;

void TableName::parse(const std::string& text, bool isFqn)
{
    const std::string& start = prefix();
    if (!isFqn) {
        m_name = text;
        m_fqn = start + text;
        return;
    }
    m_fqn = text;
    if (m_fqn.starts_with(start)) {
        m_name = m_fqn.substr(start.size());
    }
}

const std::string& TableName::prefix() const
{
    static const std::string text = "ky_";
    return text;
}

bool TableName::exclude() const
{
    return false;
}

} // namespace Kestro::Database
