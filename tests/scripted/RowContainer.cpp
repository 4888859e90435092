#include "ScriptedClient.h"

#include <Kestro/Database/RowContainer.h>

namespace {

using namespace Kestro::Database;
using Kestro::Ref;
using scripted::client;

struct TextRow : RowImpl {
    std::string text;
    int seen = 0;
    bool parse(void* connection, void* result, void* row) override
    {
        text = column(connection, result, row, 0).value_or("NULL");
        ++seen;
        if (text == "throw") {
            throw std::runtime_error(text);
        }
        return text != "stop";
    }
};

class RowContainerScripted : public scripted::Test {
protected:
    Connection connection{"one"};
    RowContainer container;

    void run(RowParser& parser, const scripted::Answer& answer)
    {
        client.calls.clear();
        client.answers = {answer};
        Query query(connection, &parser);
        query << "SELECT";
        query.execute();
    }
    static std::string texts(const RowContainer& rows)
    {
        std::string all;
        for (const auto& row : rows.rows()) {
            all += static_cast<const TextRow&>(*row).text + ' ';
        }
        return all;
    }
    void TearDown() override
    {
        connection.disconnect();
        scripted::Test::TearDown();
    }
};

TEST_F(RowContainerScripted, KyRowParserTakesEveryRowInOrder)
{
    KyRowParser<TextRow> parser(container);
    run(parser, {0, "", {{{"a"}, {"stop"}, {std::nullopt}}}, {}});
    EXPECT_EQ(texts(container), "a stop NULL ");
    for (const scripted::Answer& none :
         {scripted::Answer{}, {0, "", {{{"x"}}}, 0}, {0, "", {{{"x"}}}, -1}}) {
        run(parser, none);
        EXPECT_EQ(client.calls.size(), 1U); // nothing was fetched
    }
    KyRowParser<TextRow> another(container);
    EXPECT_THROW(run(another, {0, "", {{{"b"}, {"throw"}, {"c"}}}, {}}), std::runtime_error);
    EXPECT_EQ(texts(container), "a stop NULL b ");
    KyRowParser<NoopRowImpl> counting(container);
    run(counting, {0, "", {{{"x"}, {"y"}}}, {}});
    EXPECT_EQ(container.rows().size(), 6U);
}

TEST_F(RowContainerScripted, OneRowParserFeedsOneObjectUntilItStops)
{
    const struct {
        scripted::Answer answer;
        int seen;
        std::size_t calls; // the statement and the fetches
    } rows[] = {
        {{}, 0, 1},
        {{0, "", {{}}, {}}, 0, 2},
        {{0, "", {{{"a"}, {"b"}}}, {}}, 2, 4},
        {{0, "", {{{"a"}, {"stop"}, {"b"}}}, {}}, 2, 3},
    };
    for (const auto& row : rows) {
        TextRow object;
        OneRowParser parser(object);
        run(parser, row.answer);
        EXPECT_EQ(object.seen, row.seen);
        EXPECT_EQ(client.calls.size(), row.calls);
    }
}

TEST_F(RowContainerScripted, CopiesShareRowsAndHandlesOutliveThem)
{
    Ref<RowImpl> kept;
    {
        RowContainer copy(container);
        RowContainer assigned;
        assigned = copy;
        assigned = *&assigned;
        copy.add(Ref<RowImpl>(new TextRow));
        EXPECT_EQ(&container.rows(), &assigned.rows());
        EXPECT_EQ(container.rows().size(), 1U);
        kept = container.rows().front();
        container = RowContainer();
    }
    static_cast<TextRow&>(*kept).text = "alive";
    EXPECT_TRUE(container.rows().empty());
}

} // namespace
