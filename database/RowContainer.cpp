#include <Kestro/Database/RowContainer.h>

#include <Kestro/Database/Connection.h>
#include <db_client.h>

#include <malloc.h>
#include <string>
#include <utility>

namespace Kestro::Database {

namespace {

constexpr char File[] = "RowContainer";
constexpr unsigned NoColumnLine = 1;
constexpr unsigned NoValueLine = 2;

constexpr std::size_t LongestValue = 100; // in an exception: a line of it

} // namespace

void detail::refuseValue(std::optional<std::string_view> value, int column)
{
    std::string text = "column " + std::to_string(column) + ": ";
    if (value) {
        text.append("no value of the type that is read: \"").append(value->substr(0, LongestValue));
        text += value->size() > LongestValue ? "\"..." : "\"";
    } else {
        text += "NULL, where a value is wanted";
    }
    throw DatabaseException(4, File, NoValueLine, std::move(text), 0);
}

RowImpl::~RowImpl() = default;

void RowImpl::requireColumn(void* connection, void* result, int index)
{
    const int columns = db_result_fields_num(connection, result);
    if (index < 0 || index >= columns) {
        throw DatabaseException(4, File, NoColumnLine,
                                "there is no column " + std::to_string(index) +
                                    ", the result has " + std::to_string(columns),
                                0);
    }
}

NoopRowImpl::~NoopRowImpl() = default;

bool NoopRowImpl::parse(void* /*connection*/, void* /*result*/, void* /*row*/)
{
    return true;
}

RowContainerImpl::~RowContainerImpl()
{
    // The heap would keep the memory of the list and of the rows' texts, 100 MB for a million rows.
    // Giving it back takes 0.04 us per row.
    constexpr std::size_t Many = 1'000'000;
    if (m_rows.size() > Many) {
        m_rows.clear();
        malloc_trim(0);
    }
}

RowContainer::RowContainer() : m_counted(new RefCounted<RowContainerImpl>())
{}

RowContainer::RowContainer(const RowContainer& other)
{
    RefCountedImplCopy(m_counted, other.m_counted);
}

RowContainer& RowContainer::operator=(const RowContainer& other)
{
    RefCountedImplCopy(m_counted, other.m_counted);
    return *this;
}

RowContainer::~RowContainer()
{
    delete m_counted;
}

const std::list<Ref<RowImpl>>& RowContainer::rows() const
{
    return m_counted->object()->m_rows;
}

void RowContainer::add(const Ref<RowImpl>& row)
{
    m_counted->object()->m_rows.push_back(row);
}

void RowContainer::add(Ref<RowImpl>&& row)
{
    m_counted->object()->m_rows.push_back(std::move(row));
}

AllRowParser::~AllRowParser() = default;

void AllRowParser::addRows(void* connection, void* result, RowContainer& container,
                           RowImpl* (*make)())
{
    if (result == nullptr) {
        return;
    }
    const int count = db_result_row_num(connection, result);
    for (int index = 0; index < count; ++index) {
        Ref<RowImpl> object(make());
        void* const row = db_result_fetch_row(result, index);
        object->parse(connection, result, row);
        container.add(std::move(object));
    }
}

OneRowParser::~OneRowParser() = default;

void OneRowParser::parse(void* connection, void* result)
{
    if (result == nullptr) {
        return;
    }
    for (int index = 0;; ++index) {
        void* const row = db_result_fetch_row(result, index);
        if (row == nullptr || !m_row->parse(connection, result, row)) {
            return;
        }
    }
}

} // namespace Kestro::Database
