#include "Testing.h"

#include <Kestro/Database/RowContainer.h>
#include <Kestro/Database/TableName.h>
#include <atomic>
#include <thread>

namespace {

using namespace Kestro;
using namespace Kestro::Database;

std::atomic<int> alive{0};

// RefImpl is a virtual base twice over, and neither the first part of the object nor at its start.
struct Left : virtual RefImpl {
    int left = 1;
    int count() const { return m_refCount; }
};
struct Right : virtual RefImpl {
    int right = 2;
};
struct Shared : Left, Right {
    Ref<Shared> next;
    Shared() { ++alive; }
    ~Shared() override { --alive; }
};

TEST(Handles, ShareAndTheLastOneDestroys)
{
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
    EXPECT_EQ(alive, 0);
}

TEST(Handles, OwnABlockEach)
{
    auto* first = new RefCounted<Shared>;
    RefCounted<Shared>* second = nullptr;
    RefCountedImplCopy(second, first);
    EXPECT_NE(first, second);
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
    EXPECT_EQ(alive, 0);
}

TEST(Handles, WithoutObjectThrow)
{
    Ref<Shared> empty;
    const std::string place = " (1) at include2/KestroRefcounted:";
    EXPECT_EQ(failureOf([&] { (void)empty->left; }), "operator->" + place + "359");
    EXPECT_EQ(failureOf([&] { (void)*empty; }), "operator*" + place + "377");
    EXPECT_EQ(failureOf([empty] { (void)*empty; }), "operator*" + place + "386");
    struct Refused : RefImpl {
        static void* operator new(std::size_t /*size*/) noexcept { return nullptr; }
        static void operator delete(void* /*object*/) {}
    };
    EXPECT_EQ(failureOf([] { RefCounted<Refused> block; }),
              "RefCounted constructor for RefImpl failed. (4)");
}

TEST(Handles, DroppedOnManyThreadsDestroyOnce)
{
    for (int round = 0; round < 50; ++round) {
        Ref<Shared> original(new Shared);
        const auto use = [](Ref<Shared> handle) {
            for (int copies = 0; copies < 100; ++copies) {
                EXPECT_EQ(Ref<Shared>(handle)->left + handle->right, 3);
            }
        };
        std::jthread threads[] = {std::jthread(use, original), std::jthread(use, original),
                                  std::jthread(use, original)};
        original = Ref<Shared>();
    }
    EXPECT_EQ(alive, 0);
}

TEST(Handles, RowsLiveAsLongAsAContainerOrAHandle)
{
    struct Row : NoopRowImpl, Shared {};
    Ref<RowImpl> row(new Row);
    {
        RowContainer container;
        RowContainer assigned;
        assigned = RowContainer(container);
        assigned.add(row);
        assigned = *&assigned;
        EXPECT_EQ(&*container.rows().front(), &*row);
        container = RowContainer();
        EXPECT_TRUE(container.rows().empty());
    }
    EXPECT_EQ(alive, 1);
    row = Ref<RowImpl>();
    EXPECT_EQ(alive, 0);
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
    EXPECT_EQ(TableName("ky_b", true).name(), "b");
    EXPECT_TRUE(name != TableName("b", false) && TableName("b", false) < name);
    EXPECT_TRUE(name == TableName("x_b", true) && !(name < TableName("x_b", true)));
}

} // namespace
