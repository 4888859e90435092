#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/BitsetText.h>
#include <Kestro/Database/ValueText.h>

#include <concepts>
#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

/// Returns the text escaped for a quoted SQL literal and for a data file, as db_escape_string
/// escapes it without a connection. Any thread may call it.
KESTRO_API std::string kydb_escape_string(const std::string& text);

/// \file
/// References to a record's variables. A reference reads and writes one variable of one type; a
/// handle, KYVarRef, owns one reference. The variables belong to the caller and must outlive both.
///
/// Threads: a handle and its variable belong to one thread at a time.
namespace Kestro {

/// A reference to one variable. Applications derive from it, or from a class below, for types of
/// their own.
class KESTRO_API VarRefBase {
public:
    virtual ~VarRefBase();

    /// Writes the value as text, escaped but not quoted. The base writes nothing. Returns os.
    virtual std::ostream& streamout(std::ostream& os) const;
    /// The mark before and after the value in SQL. It lives as long as the program. The base
    /// returns the empty text.
    virtual const std::string& quotation() const;
    /// Whether the value counts as empty. The base returns true.
    virtual bool empty() const;
    /// Stores a text, converted to the variable's type. Null, which stands for SQL NULL, leaves the
    /// variable as it is.
    virtual void assign(const char* text);
    virtual void assign(const std::string& text) = 0;
    /// Returns a new reference to the same variable. The caller owns it.
    virtual VarRefBase* dup() const = 0;
    /// Appends to a text what streamout() writes to a new stream, which writes numbers as a Query
    /// does. The library's own classes do it without a stream; for an object of a class derived
    /// from them they call its streamout(). Throws Exception for NaN and infinity.
    virtual void append(std::string& text) const;
    /// Whether the value is SQL NULL. A map then writes NULL into a statement and \N into a data
    /// file, without streamout(). The base returns false.
    virtual bool isNull() const;
    /// Stores a fetched value of `length` bytes, any bytes, or null as above. The base ignores the
    /// length and calls assign(const char*), so it stores the text up to the first NUL.
    virtual void assignBytes(const char* value, std::size_t length);

protected:
    /// The quotation() of texts.
    static const std::string& doubleQuote();
    /// Appends what kydb_escape_string() returns.
    static void appendEscaped(std::string& text, std::string_view plain);
    /// Throws Exception: the value does not fit the variable.
    [[noreturn]] static void refuse(const std::string& value);
};

/// A reference to an `int`, a `long` or a `std::string`, which stores every text.
///
/// Numbers are written without quotation marks and read by strtol in base 10: a text without digits
/// is 0, and an `int` takes the low bits. Texts are escaped and quoted with ", and stored
/// unchanged.
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
    /// `size` is the buffer's size in bytes: a longer text is cut to size - 1 bytes, and a NUL
    /// always ends it. With size 0 the length is not checked: the buffer must have room.
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

/// The types that have exact references: those with a Database::ValueText, including a program's
/// own types, except std::string_view; and std::optional of each.
template <class T>
concept KYExact = Database::HasValueText<typename detail::Nullable<T>::Value> &&
    !std::same_as<typename detail::Nullable<T>::Value, std::string_view>;

/// An exact reference: it stores a value unchanged or throws.
///
/// Values are written as ValueText writes them. A float is written as the double of the same value,
/// so that a comparison with a FLOAT column finds it. streamout() throws Exception for a value that
/// SQL does not have, such as NaN. assign() throws Exception, which names the value, and leaves the
/// variable unchanged if the text has another type or is out of range. A std::string takes all the
/// bytes of a fetched value.
///
/// A std::optional is for a column that may be NULL: an empty one is written as NULL, and NULL
/// empties it. NULL leaves every other variable unchanged. empty() is true for an empty
/// std::optional and for a text of length 0.
template <KYExact T> class KESTRO_API KYExactRef : public VarRefBase {
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
        const Value* const held = value();
        if constexpr (std::same_as<Value, std::string>) {
            return held == nullptr || held->empty();
        } else {
            return held == nullptr;
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
    void assignBytes(const char* value, std::size_t length) override
    {
        if (value != nullptr) {
            assign(std::string(value, length));
        } else {
            assign(value);
        }
    }

private:
    const Value* value() const { return Nullable::valueOf(*m_var); }

    static const std::string& plain(const std::string& value) { return value; }
    template <class Other> static std::string plain(const Other& value)
    {
        std::string text;
        Text::append(text, value);
        return text;
    }

    void write(std::string& text) const
    {
        const Value* const written = value();
        if (written == nullptr) {
            text += "NULL";
        } else if constexpr (Text::Quoted) {
            appendEscaped(text, plain(*written));
        } else {
            using Written = std::conditional_t<std::same_as<Value, float>, double, Value>;
            Database::ValueText<Written>::append(text, *written);
        }
    }

    T* m_var;
};

/// Owns one reference, or is null. A copy owns a new reference to the same variable.
class KESTRO_API KYVarRef {
public:
    /// Null: no reference.
    KYVarRef() = default;
    /// Makes a reference to the variable, which must outlive it and its copies: a KYVarRefT for an
    /// int, a long, a std::string and a buffer, a KYExactRef for every other type.
    KYVarRef(int& variable);
    KYVarRef(long& variable);
    KYVarRef(std::string& variable);
    KYVarRef(char* buffer, int size);
    template <KYExact T> KYVarRef(T& variable) : m_ref(new KYExactRef<T>(variable)) {}
    /// Makes a KYExactRef for every type: an int or a long is then checked, and a std::string takes
    /// all the bytes of a binary column.
    template <KYExact T> static KYVarRef exact(T& variable)
    {
        return KYVarRef(new KYExactRef<T>(variable));
    }
    /// Takes ownership of a reference that was made with new.
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
