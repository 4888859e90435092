#pragma once

#include <Kestro/Api.h>

#include <string>

namespace Kestro::Database {

/// The name of a table in both of its forms: the short one, and the full one (`fqn`) under which
/// the database knows it, which is the prefix "ky_" and the short one. A plain value: distinct
/// objects are independent, and one may be read by several threads.
class KESTRO_API TableName {
public:
    /// Both forms empty.
    TableName() = default;
    /// As parse(), but always with the base class's prefix.
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
    /// For derived classes to mark tables; the library does not ask. False.
    virtual bool exclude() const;

    /// All by the full form alone, as std::string compares.
    bool operator<(const TableName& other) const { return m_fqn < other.m_fqn; }
    bool operator==(const TableName& other) const { return m_fqn == other.m_fqn; }
    bool operator!=(const TableName& other) const { return m_fqn != other.m_fqn; }

private:
    std::string m_name;
    std::string m_fqn;
};

} // namespace Kestro::Database
