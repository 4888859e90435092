#include "Testing.h"

#include <Kestro/Storage.h>
#include <algorithm>
#include <array>
#include <memory>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace Kestro;

template <std::size_t Size> struct Stored : Storage {
    std::array<unsigned char, Size> bytes;
    explicit Stored(unsigned char mark) { bytes.fill(mark); }
};

// Objects keep their bytes whichever thread makes and deletes them, and what is deleted is used
// again.
template <std::size_t Size> void passBetweenThreads()
{
    constexpr int Objects = 1000; // many batches
    std::set<const void*> places;
    for (int round = 0; round < 3; ++round) {
        std::vector<std::unique_ptr<Stored<Size>>> all(2 * Objects);
        const auto make = [&all](int first) {
            for (int i = first; i < first + Objects; ++i) {
                all[static_cast<std::size_t>(i)] =
                    std::make_unique<Stored<Size>>(static_cast<unsigned char>(i % 251));
            }
        };
        std::jthread other(make, 0);
        make(Objects);
        other.join();
        std::set<const void*> now;
        for (int i = 0; i < 2 * Objects; ++i) {
            const auto& object = all[static_cast<std::size_t>(i)];
            EXPECT_EQ(std::ranges::count(object->bytes, i % 251), Size);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(object.get()) % 16, 0U);
            now.insert(object.get());
        }
        EXPECT_EQ(now.size(), all.size());
        places.merge(now);
        std::jthread([&all] { all.clear(); }).join();
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(places.size(), Size <= 256 ? std::size_t{2} * 2 * Objects : SIZE_MAX)
        << "freed places are not used again";
#endif
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// A thread that ends leaves what it deleted to the others, however little it was, and whatever its
// own thread_local objects delete then.
TEST(Storage, IsLeftByThreadsThatEnd)
{
    using Object = Stored<200>;
    std::set<const void*> places;
    for (int round = 0; round < 100; ++round) {
        std::vector<std::unique_ptr<Object>> all(40);
        for (auto& object : all) {
            object = std::make_unique<Object>(0);
            places.insert(object.get());
        }
        std::jthread([&all, round] {
            if (round % 2 == 0) {
                all.clear();
                return;
            }
            // Older than the storage's own end in this thread, so it deletes behind that.
            static thread_local std::vector<std::unique_ptr<Object>> held;
            held = std::move(all);
            held.pop_back();
        }).join();
    }
    EXPECT_LT(places.size(), 1000U);
}

// A child process can make objects whatever other threads of its parent were doing.
TEST(Storage, LivesOnInAChildProcess)
{
    const auto use = [] {
        std::array<std::unique_ptr<Stored<232>>, 200> all; // more than a thread keeps
        for (auto& object : all) {
            object = std::make_unique<Stored<232>>(0);
        }
    };
    std::jthread other([&use](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            use();
        }
    });
    for (int i = 0; i < 300; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(10); // ends a child that waits for ever
            use();
            _exit(0);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
    }
}
#endif

TEST(Storage, PassesObjectsBetweenThreads)
{
    passBetweenThreads<1>();
    passBetweenThreads<40>();
    passBetweenThreads<256>();
    passBetweenThreads<257>();
}

} // namespace
