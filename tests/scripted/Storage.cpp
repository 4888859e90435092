#include "Testing.h"

#include <Kestro/Storage.h>
#include <algorithm>
#include <array>
#include <fstream>
#include <memory>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// There if the tests are compiled with a sanitizer that watches the heap.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" [[gnu::weak]] int __sanitizer_get_ownership(const volatile void* object);

namespace {

using namespace Kestro;

template <std::size_t Size> struct Stored : Storage {
    std::array<unsigned char, Size> bytes;
    explicit Stored(unsigned char mark = 0) { bytes.fill(mark); }
};

template <std::size_t Size> struct Objects : std::vector<std::unique_ptr<Stored<Size>>> {
    using std::vector<std::unique_ptr<Stored<Size>>>::vector;
    // Both take each step-th place, from the first on.
    void make(std::size_t first = 0, std::size_t step = 1)
    {
        for (std::size_t i = first; i < this->size(); i += step) {
            (*this)[i] = std::make_unique<Stored<Size>>(static_cast<unsigned char>(i % 251));
        }
    }
    void drop(std::size_t first = 0, std::size_t step = 1)
    {
        for (std::size_t i = first; i < this->size(); i += step) {
            (*this)[i].reset();
        }
    }
    void expectIntact() const
    {
        for (std::size_t i = 0; i < this->size(); ++i) {
            const auto& bytes = (*this)[i]->bytes;
            EXPECT_EQ(std::ranges::count(bytes, i % 251), Size);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&bytes) % (Size % 16 == 0 ? 16 : 8), 0U);
        }
    }
};

// Objects keep their bytes whichever thread makes and deletes them.
TEST(Storage, PassesObjectsBetweenThreads)
{
    const auto pass = []<std::size_t Size>(Objects<Size> all, Objects<Size> few) {
        {
            const std::jthread other([&all] { all.make(0, 2); });
            all.make(1, 2);
        }
        all.expectIntact();
        // Two threads delete in all chunks at once, while this one uses its own.
        const std::jthread even([&all] { all.drop(0, 2); });
        const std::jthread odd([&all] { all.drop(1, 2); });
        for (int again = 0; again < 1000; ++again) {
            few.drop();
            few.make();
        }
        few.expectIntact();
    };
    for (int round = 0; round < 3; ++round) { // 10'000 take several chunks
        pass(Objects<1>(10'000), Objects<1>(20));
        pass(Objects<40>(10'000), Objects<40>(20));
        pass(Objects<256>(10'000), Objects<256>(20));
        pass(Objects<257>(10'000), Objects<257>(20));
    }
}

// What many objects took goes back, whoever deletes them and though a few of them stay.
TEST(Storage, GivesMemoryBack)
{
    if (__sanitizer_get_ownership != nullptr) {
        const auto object = std::make_unique<Stored<100>>();
        EXPECT_NE(__sanitizer_get_ownership(object.get()), 0) << "hidden from the sanitizer";
        return;
    }
    const auto residentPages = [] {
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages >> pages; // the second number
        return pages;
    };
    const auto run = [](bool inThread, const auto& work) {
        inThread ? std::jthread(work).join() : work();
    };
    // Whether a thread that ends makes the objects, and whether another one deletes them.
    for (const auto& [makes, deletes] :
         Table<bool, bool>{{false, false}, {false, true}, {true, false}}) {
        Objects<100> all(300'000);
        const long before = residentPages();
        run(makes, [&all] { all.make(); });
        const long tenth = (residentPages() - before) / 10;
        EXPECT_GT(tenth, 700) << makes << deletes;
        run(deletes, [&all] { all.drop(0, 2); });
        run(makes, [&all] { all.make(0, 2); });
        EXPECT_LT(residentPages() - before, 11 * tenth)
            << makes << deletes << ": places are not used again";
        const std::array kept{std::move(all[100]), std::move(all[150'000])};
        run(deletes, [&all] { all.drop(); });
        EXPECT_LT(residentPages() - before, tenth) << makes << deletes;
    }
    // A thread that ends leaves all to the others: what it deleted, and its last chunk, whatever
    // its own thread_local objects delete then.
    const long before = residentPages();
    for (int i = 0; i < 1000; ++i) {
        Objects<200> all(200);
        all.make();
        run(true, [&all] {
            static thread_local std::unique_ptr<Stored<200>> held;
            held = std::make_unique<Stored<200>>();
            all.drop();
        });
    }
    EXPECT_LT(residentPages() - before, 1000); // a tenth of all
}

// A child process can make and delete objects whatever other threads of its parent were doing.
TEST(Storage, LivesOnInAChildProcess)
{
    if (__sanitizer_get_ownership != nullptr) {
        GTEST_SKIP() << "a sanitizer's own locks are not safe there";
    }
    const auto use = [] { Objects<232>(2000).make(); };
    const std::jthread other([&use](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            use();
        }
    });
    for (int i = 0; i < 100; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(10); // ends a child that waits for ever
            use();
            _exit(0);
        }
        int status = -1;
        ASSERT_TRUE(waitpid(child, &status, 0) == child && status == 0) << status;
    }
}

} // namespace
