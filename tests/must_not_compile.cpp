// Compiled once per CASE. Case 0 is right and must compile; every other one must not.
#include <KestroDatabase>

using namespace Kestro::Database;

struct Row : NoopRowImpl {};
struct NotShared {};

void use(Connection& connection, Row& row, RowContainer& container)
{
    container.add(Kestro::Ref<RowImpl>(new Row));
#if CASE == 1 // a row is never copied
    Row copy(row);
#elif CASE == 2 // a link has one owner
    Connection copy(connection);
#elif CASE == 3 // a plain pointer does not turn into a handle by itself
    container.add(&row);
#elif CASE == 4 // only what derives from RefImpl is shared
    Kestro::Ref<NotShared> other(new NotShared);
#endif
}
