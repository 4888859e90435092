#include <KestroRefcounted>
#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <new>
#include <thread>
#include <vector>

namespace {

using Kestro::Ref;
using Kestro::RefCounted;
using Kestro::RefCountedImplCopy;

std::atomic<int> alive{0};

struct Shared : Kestro::RefImpl {
    Shared() { ++alive; }
    ~Shared() override { --alive; }
    int count() const { return m_refCount; }
};

// RefImpl is a virtual base twice over, and neither the first part of the object nor at its start.
struct Left : virtual Kestro::RefImpl {
    int left = 1;
};
struct Right : virtual Kestro::RefImpl {
    int right = 2;
};
struct Diamond : Left, Right {
    Diamond() { ++alive; }
    ~Diamond() override { --alive; }
    int count() const { return m_refCount; }
};

struct Refused : Kestro::RefImpl {
    static void* operator new(std::size_t /*size*/) noexcept { return nullptr; }
    static void operator delete(void* /*object*/) {}
};
struct Throwing : Kestro::RefImpl {
    Throwing() { throw std::bad_alloc(); }
};

TEST(Refcounted, HandlesShareAndTheLastOneDestroys)
{
    {
        Ref<Shared> first(new Shared);
        EXPECT_EQ(first->count(), 1);
        Ref<Shared> second(first);
        EXPECT_EQ(first->count(), 2);
        EXPECT_EQ(&*first, &*second);

        second = *&second; // itself
        EXPECT_EQ(second->count(), 2);
        Ref<Shared> other(new Shared);
        other = first;
        EXPECT_EQ(alive, 1);
        EXPECT_EQ(first->count(), 3);
        other = Ref<Shared>();
        EXPECT_FALSE(other);
        EXPECT_EQ(first->count(), 2);
        Ref<Shared> moved(std::move(second));
        EXPECT_EQ(moved->count(), 2);
        EXPECT_FALSE(Ref<Shared>(other));
        first = other;
        EXPECT_EQ(moved->count(), 1);
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(Refcounted, BlocksAreOnesOwnAndCompareByObject)
{
    auto* object = new Shared;
    auto* first = new RefCounted<Shared>(object);
    RefCounted<Shared>* second = nullptr;
    RefCountedImplCopy(second, first);
    EXPECT_NE(first, second);
    EXPECT_TRUE(*first == *second);
    RefCountedImplCopy(second, first); // the old block of the same object goes first
    EXPECT_EQ(object->count(), 2);
    RefCounted<Shared> other;
    EXPECT_FALSE(*first == other);

    const RefCounted<Shared> none(nullptr);
    RefCountedImplCopy(second, &none);
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(*second == none);
    RefCountedImplCopy<Shared>(second, nullptr);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(Ref<Shared>(nullptr).operator->(), nullptr); // a block, and nothing behind it
    delete first;
    EXPECT_EQ(alive, 1);
}

TEST(Refcounted, EmptyHandleThrows)
{
    Ref<Shared> empty;
    const Ref<Shared>& constant = empty;
    const struct {
        void (*access)(Ref<Shared>&, const Ref<Shared>&);
        const char* message;
        unsigned line;
    } rows[] = {
        {[](auto& handle, auto&) { (void)handle->count(); }, "operator->", 359},
        {[](auto& handle, auto&) { (void)(*handle).count(); }, "operator*", 377},
        {[](auto&, auto& handle) { (void)(*handle).count(); }, "operator*", 386},
    };
    for (const auto& row : rows) {
        try {
            row.access(empty, constant);
            ADD_FAILURE() << row.line;
        } catch (const Kestro::Exception& e) {
            EXPECT_EQ(e.message(), row.message);
            EXPECT_EQ(e.lineNumber(), row.line);
            EXPECT_EQ(e.intParameter(), 1);
            EXPECT_EQ(e.fileName(), "include2/KestroRefcounted");
        }
    }
}

TEST(Refcounted, BlockWithoutObjectIsReportedAndFreed)
{
    try {
        RefCounted<Refused> block;
        ADD_FAILURE();
    } catch (const Kestro::Exception& e) {
        EXPECT_EQ(e.asString(), "RefCounted constructor for RefImpl failed. (4)");
        EXPECT_EQ(e.lineNumber(), 0U);
    }
    EXPECT_THROW(RefCounted<Throwing>(), std::bad_alloc);
}

TEST(Refcounted, DroppedOnManyThreadsDestroyedOnce)
{
    for (int round = 0; round < 50; ++round) {
        Ref<Diamond> original(new Diamond);
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([handle = original]() mutable {
                for (int copies = 0; copies < 100; ++copies) {
                    const Ref<Diamond> copy(handle);
                    EXPECT_EQ(copy->left + copy->right, 3);
                }
                handle = Ref<Diamond>();
            });
        }
        original = Ref<Diamond>();
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(alive, 0);
    }
    Ref<Diamond> diamond(new Diamond);
    const Ref<Diamond> copy(diamond);
    EXPECT_EQ(diamond->count(), 2);
}

} // namespace
