#include "Testing.h"

#include <Kestro/Database/RowContainer.h>
#include <Kestro/Database/TableName.h>
#include <atomic>
#include <thread>

namespace {

using namespace Kestro;
using namespace Kestro::Database;

std::atomic<int> alive{0};

// A virtual base on two paths: RefImpl is not at the start of a Shared.
struct Left : virtual RefImpl {
    int count() const { return m_refCount; }
};
struct Right : virtual RefImpl {};
struct Shared : Left, Right {
    Ref<Shared> next;
    Shared() { ++alive; }
    ~Shared() override { --alive; }
};

struct Handles : testing::Test {
    ~Handles() override { EXPECT_EQ(alive, 0) << "not destroyed"; }
};

TEST_F(Handles, ShareAndTheLastOneDestroys)
{
    Ref<Shared> first(new Shared);
    Ref<Shared> second(first);
    second = *&second; // itself
    EXPECT_EQ(second->count(), 2);
    EXPECT_EQ(Left(*second).count(), 1); // a copy is a new object
    Ref<Shared> other(new Shared);
    other = first;
    EXPECT_EQ(alive, 1);
    const Ref<Shared> moved(std::move(second));
    EXPECT_EQ(moved->count(), 3);
    other = first = Ref<Shared>();
    EXPECT_FALSE(other);
    EXPECT_EQ(moved->count(), 1);
    // A handle may belong to the object that it replaces.
    Ref<Shared> head(new Shared);
    head->next = Ref<Shared>(new Shared);
    head = head->next;
    EXPECT_EQ(alive, 2);
    head->next = Ref<Shared>(new Shared);
    head = std::move(head->next);
    EXPECT_EQ(alive, 2);
}

TEST_F(Handles, OwnABlockEach)
{
    auto* first = new RefCounted<Shared>;
    RefCounted<Shared>* second = nullptr;
    RefCountedImplCopy(second, first);
    EXPECT_TRUE(*first == *second);
    RefCountedImplCopy(second, first); // the old block of the same object goes first
    RefCountedImplCopy<Shared>(second, second);
    EXPECT_EQ(first->object()->count(), 2);
    const RefCounted<Shared> none(nullptr);
    RefCountedImplCopy(second, &none);
    EXPECT_TRUE(*second == none && !(*first == none));
    RefCountedImplCopy<Shared>(second, nullptr);
    EXPECT_EQ(second, nullptr);
    delete first;
}

TEST_F(Handles, WithoutObjectThrow)
{
    Ref<Shared> empty;
    struct Refused : RefImpl {
        static void* operator new(std::size_t /*size*/) noexcept { return nullptr; }
        static void operator delete(void* /*object*/) {}
    };
    const std::string place = " (1) at include2/KestroRefcounted:";
    expectEqual({{failureOf([&] { (void)empty->next; }), "operator->" + place + "359"},
                 {failureOf([&] { (void)*empty; }), "operator*" + place + "377"},
                 {failureOf([empty] { (void)*empty; }), "operator*" + place + "386"},
                 {failureOf([] { RefCounted<Refused> block; }),
                  "RefCounted constructor for RefImpl failed. (4)"}});
}

TEST_F(Handles, DroppedOnManyThreadsDestroyOnce)
{
    for (int round = 0; round < 50; ++round) {
        auto copy = [handle = Ref<Shared>(new Shared)] {
            for (int copies = 0; copies < 10'000; ++copies) {
                (void)Ref<Shared>(handle);
            }
        };
        const std::jthread threads[] = {std::jthread(copy), std::jthread(copy),
                                        std::jthread(std::move(copy))};
    }
}

TEST_F(Handles, RowsLiveAsLongAsAContainerOrAHandle)
{
    struct Row : NoopRowImpl, Shared {};
    const Ref<RowImpl> row(new Row);
    RowContainer container;
    {
        RowContainer assigned;
        assigned = RowContainer(container);
        assigned.add(row);
        assigned = *&assigned;
    }
    EXPECT_EQ(&*container.rows().front(), &*row);
    container = RowContainer();
    EXPECT_TRUE(container.rows().empty());
    EXPECT_EQ(alive, 1);
}

struct OtherName : TableName {
    using TableName::TableName;
    const std::string m_prefix = "x_";
    const std::string& prefix() const override { return m_prefix; }
};

TEST(TableNames, BothFormsFollowFromEitherAndTheFullOneCompares)
{
    OtherName name("x_a", false);
    EXPECT_EQ(name.fqn(), "ky_x_a"); // a base's constructor sees the base's prefix
    for (const char* other : {"X_b", "ax_b", ""}) {
        name.parse(other, true);
        EXPECT_EQ(name.fqn(), other);
        EXPECT_EQ(name.name(), "x_a"); // what is no full name of ours leaves the short one
    }
    name.parse("x_b", true);
    EXPECT_EQ(name.name(), "b");
    EXPECT_TRUE(name != TableName("b", false) && TableName("b", false) < name);
    EXPECT_TRUE(name == TableName("x_b", true) && !(name < TableName("x_b", true)));
}

} // namespace
