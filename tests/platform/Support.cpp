#include "Testing.h"

#include <Kestro/SocketAddress.h>
#include <Kestro/Storage.h>
#include <Kestro/Threads.h>
#include <algorithm>
#include <array>
#include <basepp/dbg.h>
#include <memory>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace Kestro;

TEST(Platform, ExceptionsTellEverythingOnceAndCopiesKeepIt)
{
    Exception inner("inner", 4, "File", 7);
    inner.stringParameter("reason");
    Exception outer("outer");
    outer.intParameter(1);
    outer.fileName(static_cast<const char*>(nullptr));
    outer.cause(inner);
    inner.stringParameter("changed later");
    outer.cause(Exception(outer)); // itself: the copy does not hold the cycle
    const Exception copy(outer);
    outer.fileName("Place");
    outer.lineNumber(3);
    EXPECT_EQ(outer.asString().substr(0, 20), "outer (1) at Place:3");
    const std::exception& caught = copy;
    EXPECT_STREQ(caught.what(), "outer (1) <- outer (1) <- inner (4) at File:7: reason");
    EXPECT_EQ(failureOf([&] { (void)copy.cause().cause().cause(); }), "cause (1)");
}

TEST(Platform, AddressesAreDottedQuadsAndPorts)
{
    const IPAddress address("255.0.1.2");
    EXPECT_EQ(address.value(), 0xff000102U);
    EXPECT_EQ(address.asString(), "255.0.1.2");
    for (const std::string& text :
         {std::string("1.2.3"), std::string("256.1.1.1"), std::string("01.2.3.4"),
          std::string("localhost"), std::string("1.2.3.4\0x", 9)}) {
        EXPECT_EQ(failureOf([&] { IPAddress refused(text); }), "IPAddress (4): " + text);
    }
    EXPECT_EQ(SocketAddress(address, 65535).asINET().port, 65535U);
    EXPECT_EQ(failureOf([&] { SocketAddress refused(address, 65536); }),
              "SocketAddress (4): 65536");
}

TEST(Platform, MutexIsRecursiveAndSemaphoreCounts)
{
    Mutex mutex;
    Semaphore free(2);
    int lent = 0;
    const auto lend = [&] {
        for (int round = 0; round < 10000; ++round) {
            free.wait();
            const Synchronized outer(mutex);
            const Synchronized inner(mutex);
            ++lent;
            ++free;
        }
    };
    std::thread other(lend);
    lend();
    other.join();
    EXPECT_EQ(lent, 20000);
    EXPECT_TRUE(free.trywait() && free.trywait());
    EXPECT_FALSE(free.trywait());
    EXPECT_EQ(failureOf([] { Semaphore refused(1U << 31); }), "Semaphore (4)");
    Semaphore full((1U << 31) - 1);
    EXPECT_EQ(failureOf([&] { ++full; }), "Semaphore (4)");
}

TEST(Platform, TraceWritesOneLineAndCutsIt)
{
    const auto written = [](const std::string& text) {
        testing::internal::CaptureStderr();
        basepp::dbg::debug("File", 37, "function", 0, "%s", text.c_str());
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(written("one\ntwo"), "File:37 function 0: one two\n");
    EXPECT_EQ(written(std::string(9999, 'x')).substr(4094), "x\n");
    EXPECT_EQ(*basepp_dbg_mask_, 0x80008U); // as the environment says
}

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
