#include <Kestro/Database/RowContainer.h>

#include <db_client.h>

#include <malloc.h>
#include <utility>

namespace Kestro::Database {

RowImpl::~RowImpl() = default;

NoopRowImpl::~NoopRowImpl() = default;

bool NoopRowImpl::parse(void* /*connection*/, void* /*result*/, void* /*row*/)
{
    return true;
}

RowContainerImpl::~RowContainerImpl()
{
    // The heap keeps what the list and the rows' texts took, until something large is freed: of a
    // million rows 100 MB, which it may well need again. To give it back takes 0.04 us for each.
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
