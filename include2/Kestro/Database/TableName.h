#pragma once

#include <Kestro/Api.h>

#include <string>

namespace Kestro::Database {

/// The name of a table in both of its forms: the short one, and the full one (`fqn`) that the table
/// has in the database, which is the prefix "ky_" followed by the short one.
///
/// Threads: a plain value; several threads may read one object.
class KESTRO_API TableName {
public:
    /// Both forms empty.
    TableName() = default;
    /// Like parse(), but always with the prefix of this class, not of a derived one.
    TableName(const std::string& text, bool isFqn);
    TableName(const TableName&) = default;
    TableName& operator=(const TableName&) = default;
    virtual ~TableName();

    /// Sets the name from its full form (isFqn) or its short one; nothing is checked. A full form
    /// without the prefix, which is compared byte for byte, leaves the short form as it was.
    void parse(const std::string& text, bool isFqn);

    /// The short form, without the prefix. The reference lives as long as this object.
    const std::string& name() const { return m_name; }
    /// The full form. The reference lives as long as this object.
    const std::string& fqn() const { return m_fqn; }

    /// "ky_". A class that overrides it returns a text that lives as long as its objects. Any
    /// thread may call it.
    virtual const std::string& prefix() const;
    /// Lets derived classes mark tables; the library ignores it. The base returns false.
    virtual bool exclude() const;

    /// These compare the full forms, as std::string does.
    bool operator<(const TableName& other) const { return m_fqn < other.m_fqn; }
    bool operator==(const TableName& other) const { return m_fqn == other.m_fqn; }
    bool operator!=(const TableName& other) const { return m_fqn != other.m_fqn; }

private:
    std::string m_name;
    std::string m_fqn;
};

} // namespace Kestro::Database
