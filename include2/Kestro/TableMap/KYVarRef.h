#pragma once

#include <Kestro/Api.h>

#include <iosfwd>
#include <string>

/// The text escaped for use inside a quoted SQL literal and inside a data file: what
/// db_escape_string writes without a connection. Any thread may call it.
KESTRO_API std::string kydb_escape_string(const std::string& text);

/// \file
/// How a record's columns reach its variables: a reference knows one variable of one type, and a
/// handle, KYVarRef, owns one reference. The variables belong to the caller and outlive both.
///
/// Threads: a handle and its variable belong to one thread at a time.
namespace Kestro {

/// A reference to one variable, of whatever type. Applications derive from it for types of their
/// own.
class KESTRO_API VarRefBase {
public:
    virtual ~VarRefBase();

    /// Writes the value as text, escaped but not quoted. The base writes nothing. Returns os.
    virtual std::ostream& streamout(std::ostream& os) const;
    /// The mark in front of and behind the value in SQL; it lives as long as the program. The base
    /// gives the empty text.
    virtual const std::string& quotation() const;
    /// Whether the value counts as empty. The base says true.
    virtual bool empty() const;
    /// Stores a text, converted to the variable's type. Null, which stands for SQL NULL, leaves the
    /// variable as it is.
    virtual void assign(const char* text);
    virtual void assign(const std::string& text) = 0;
    /// A new reference to the same variable; the caller owns it.
    virtual VarRefBase* dup() const = 0;
    /// Appends to a text what streamout() writes to a fresh stream in the classic locale, and so
    /// does the base. The library's own kinds write without a stream, unless a kind is derived from
    /// them: its streamout() counts.
    virtual void append(std::string& text) const;
};

/// A reference to an `int`, a `long` or a `std::string`.
///
/// Numbers are written bare and read as strtol reads them in base 10: 0 for a text without digits,
/// and an `int` takes the low bits. Texts are escaped, quoted with " and stored unchanged.
template <class T> class KESTRO_API KYVarRefT : public VarRefBase {
public:
    /// Refers to this variable, which must outlive the reference and its copies.
    explicit KYVarRefT(T& variable) : m_var(&variable) {}

    std::ostream& streamout(std::ostream& os) const override;
    const std::string& quotation() const override;
    bool empty() const override;
    using VarRefBase::assign;
    void assign(const std::string& text) override;
    VarRefBase* dup() const override;
    void append(std::string& text) const override;

private:
    T* m_var;
};

extern template class KYVarRefT<int>;
extern template class KYVarRefT<long>;
extern template class KYVarRefT<std::string>;

/// A reference to a buffer of characters that holds a NUL-terminated text.
template <> class KESTRO_API KYVarRefT<char*> : public VarRefBase {
public:
    /// size: the bytes of the buffer; a longer text is cut to size - 1 of them, and the NUL is
    /// always there. 0: the buffer has room for every text that is assigned.
    KYVarRefT(char* buffer, int size) : m_buf(buffer), m_size(size) {}

    std::ostream& streamout(std::ostream& os) const override;
    const std::string& quotation() const override;
    bool empty() const override;
    using VarRefBase::assign;
    void assign(const std::string& text) override;
    VarRefBase* dup() const override;
    void append(std::string& text) const override;

private:
    char* m_buf;
    int m_size;
};

/// Owns one reference, or is null. A copy owns a reference of its own to the same variable.
class KESTRO_API KYVarRef {
public:
    /// Null: no reference.
    KYVarRef() = default;
    /// Makes the reference that fits the variable, which must outlive it and its copies.
    KYVarRef(int& variable);
    KYVarRef(long& variable);
    KYVarRef(std::string& variable);
    KYVarRef(char* buffer, int size);
    /// Takes over a reference of the caller's own kind, made with new.
    explicit KYVarRef(VarRefBase* reference) : m_ref(reference) {}
    KYVarRef(const KYVarRef& other);
    KYVarRef& operator=(const KYVarRef& other);
    ~KYVarRef();

    /// Deletes the reference and makes the handle null.
    void release();
    /// Whether the handle is null.
    bool isNull() const { return m_ref == nullptr; }
    /// The reference, null for a null handle.
    VarRefBase* operator->() const { return m_ref; }

private:
    VarRefBase* m_ref = nullptr;
};

/// Writes the value as streamout() does, numbers in decimal whatever the stream's locale and flags
/// say. The handle must not be null.
KESTRO_API std::ostream& operator<<(std::ostream& os, const KYVarRef& ref);

} // namespace Kestro
