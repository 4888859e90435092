#pragma once

#include <Kestro/Database/RowContainer.h>

#include <cstddef>
#include <iterator>
#include <list>

namespace Kestro::Database {

/// The rows of a container as objects of their own class, for a range-based for loop; see rows().
///
/// Threads: as for the container.
template <class T> class TypedRows {
    using Handles = std::list<Ref<RowImpl>>;

public:
    /// A forward iterator.
    class Iterator {
    public:
        /// What a forward iterator names.
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = T*;
        using reference = T&;

        Iterator() = default;
        /// Points to the row of this handle.
        explicit Iterator(Handles::const_iterator handle) : m_handle(handle) {}

        /// Throws std::bad_cast if the row is not a T.
        T& operator*() const { return dynamic_cast<T&>(**m_handle); }
        T* operator->() const { return &**this; }
        Iterator& operator++()
        {
            ++m_handle;
            return *this;
        }
        Iterator operator++(int) { return Iterator(m_handle++); }
        bool operator==(const Iterator&) const = default;

    private:
        Handles::const_iterator m_handle;
    };

    /// Shares the rows with the container.
    explicit TypedRows(const RowContainer& container) : m_container(container) {}

    /// The range, in the order of the container.
    Iterator begin() const { return Iterator(m_container.rows().begin()); }
    Iterator end() const { return Iterator(m_container.rows().end()); }
    /// Their number.
    std::size_t size() const { return m_container.rows().size(); }
    bool empty() const { return m_container.rows().empty(); }

private:
    RowContainer m_container;
};

/// The rows of a container that a KyRowParser<T> filled, as Ts:
///
///     for (const City& city : rows<City>(cities)) {
///         std::cout << city.name << '\n';
///     }
///
/// The range shares the rows with the container, and keeps them.
template <class T> TypedRows<T> rows(const RowContainer& container)
{
    return TypedRows<T>(container);
}

} // namespace Kestro::Database
