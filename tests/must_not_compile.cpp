// Compiled once per CASE. Case 0 is right and must compile; every other one must not.
#include <KestroDatabase>

using namespace Kestro;
using namespace Kestro::Database;

struct Row : RowImpl {
    bool parse(void*, void*, void*) override { return true; }
};
struct NotShared {};

void use(Connection& connection, Query& query, Row& row, RowContainer& container)
{
    Ref<Row> handle(new Row);
    KyRowParser<Row> parser(container);
#if CASE == 1 // a row is never copied
    Row copy(row);
#elif CASE == 2 // a link has one owner
    Connection copy(connection);
#elif CASE == 3 // a statement is not copied
    Query copy(query);
#elif CASE == 4 // a plain pointer does not turn into a handle by itself
    container.add(&row);
#elif CASE == 5 // only what derives from RefImpl is shared
    Ref<NotShared> other(new NotShared);
#elif CASE == 6 // a block stands for one reference
    RefCounted<Row> block(new Row), copy(block);
#elif CASE == 7 // handles to different classes are different
    Ref<RowContainerImpl> other(handle);
#elif CASE == 8 // text is no connection
    Query other("SELECT 1");
#endif
    (void)connection, (void)query, (void)row;
}
