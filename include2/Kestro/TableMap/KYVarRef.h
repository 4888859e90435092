#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/ValueText.h>

#include <concepts>
#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <typeinfo>

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
    /// Whether the value is SQL NULL, which is then written in its place: NULL in a statement, \N
    /// in a data file. The base says false.
    virtual bool isNull() const;
    /// Stores a fetched value of this many bytes, whatever they are. The base takes the text up to
    /// the first NUL and calls assign(const char*) with it.
    virtual void assign(const char* value, std::size_t length);

protected:
    /// The mark of quoted kinds.
    static const std::string& doubleQuote();
    /// Appends what kydb_escape_string() gives.
    static void appendEscaped(std::string& text, std::string_view plain);
    /// Throws the Exception of a kind that does not take a value.
    [[noreturn]] static void refuse(const std::string& value);
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

namespace detail {

template <class T> struct Nullable {
    using Value = T;
    static const T* valueOf(const T& variable) { return &variable; }
};
template <class T> struct Nullable<std::optional<T>> {
    using Value = T;
    static const T* valueOf(const std::optional<T>& variable)
    {
        return variable ? &*variable : nullptr;
    }
};

} // namespace detail

/// The types with exact references: those with a Database::ValueText, a program's own too, but for
/// views of texts; and std::optional of each.
template <class T>
concept KYExact = Database::HasValueText<typename detail::Nullable<T>::Value> &&
    !std::same_as<typename detail::Nullable<T>::Value, std::string_view>;

/// A reference that reads back what it wrote, or fails.
///
/// A value is written as its ValueText says, a float as the double of the same value, so that a
/// comparison with a FLOAT column finds it; streamout() throws Exception if SQL has no such value.
/// Fetched values are taken whole, with all their bytes. assign() throws Exception, which names the
/// value, and leaves the variable as it is, if a text is not one of the variable's type or is out
/// of its range.
///
/// A std::optional stands for a column that may be NULL: what is empty is written as NULL and NULL
/// makes it empty. Every other variable is left as it is by NULL. empty() is true for these and for
/// a text without characters.
template <KYExact T> class KYExactRef : public VarRefBase {
    using Nullable = detail::Nullable<T>;
    using Value = typename Nullable::Value;
    using Text = Database::ValueText<Value>;
    static constexpr bool MayBeNull = !std::same_as<Value, T>;

public:
    /// Refers to this variable, which must outlive the reference and its copies.
    explicit KYExactRef(T& variable) : m_var(&variable) {}

    std::ostream& streamout(std::ostream& os) const override
    {
        std::string text;
        write(text);
        return os << text;
    }
    const std::string& quotation() const override
    {
        return Text::Quoted ? doubleQuote() : VarRefBase::quotation();
    }
    bool empty() const override
    {
        if constexpr (std::same_as<Value, std::string>) {
            return isNull() || value()->empty();
        } else {
            return isNull();
        }
    }
    void assign(const char* text) override
    {
        if constexpr (MayBeNull) {
            if (text == nullptr) {
                m_var->reset();
            }
        }
        VarRefBase::assign(text);
    }
    void assign(const std::string& text) override
    {
        Value read{};
        if (!Text::parse(text, read)) {
            refuse(text);
        }
        *m_var = std::move(read);
    }
    VarRefBase* dup() const override { return new KYExactRef(*this); }
    void append(std::string& text) const override
    {
        if (typeid(*this) == typeid(KYExactRef)) {
            write(text);
        } else {
            VarRefBase::append(text); // a derived kind may write something else
        }
    }
    bool isNull() const override { return value() == nullptr; }
    void assign(const char* value, std::size_t length) override
    {
        if (value != nullptr) {
            assign(std::string(value, length));
        } else {
            assign(value);
        }
    }

private:
    const Value* value() const { return Nullable::valueOf(*m_var); }

    void write(std::string& text) const
    {
        const Value* const written = value();
        if (written == nullptr) {
            text += "NULL";
        } else if constexpr (std::same_as<Value, std::string>) {
            appendEscaped(text, *written);
        } else if constexpr (std::same_as<Value, float>) {
            Database::ValueText<double>::append(text, *written);
        } else if constexpr (Text::Quoted) {
            std::string plain;
            Text::append(plain, *written);
            appendEscaped(text, plain);
        } else {
            Text::append(text, *written);
        }
    }

    T* m_var;
};

/// Owns one reference, or is null. A copy owns a reference of its own to the same variable.
class KESTRO_API KYVarRef {
public:
    /// Null: no reference.
    KYVarRef() = default;
    /// Makes the reference that fits the variable, which must outlive it and its copies: a
    /// KYVarRefT for these types, which takes any text somehow, and a KYExactRef for all others.
    KYVarRef(int& variable);
    KYVarRef(long& variable);
    KYVarRef(std::string& variable);
    KYVarRef(char* buffer, int size);
    template <KYExact T> KYVarRef(T& variable) : m_ref(new KYExactRef<T>(variable)) {}
    /// Makes a KYExactRef also for an int, a long or a std::string, which then takes all the bytes
    /// of a binary column.
    template <KYExact T> static KYVarRef exact(T& variable)
    {
        return KYVarRef(new KYExactRef<T>(variable));
    }
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
