#include "Testing.h"

#include <Kestro/SocketAddress.h>
#include <Kestro/Threads.h>
#include <atomic>
#include <basepp/dbg.h>
#include <csignal>
#include <ctime>
#include <pthread.h>
#include <thread>

namespace {

using namespace Kestro;
using namespace std::string_literals;

// The pause that was asked for last.
timespec slept{};

TEST(Platform, ExceptionsTellEverythingOnceAndCopiesKeepIt)
{
    Exception inner("inner", 4, "File", 7);
    inner.stringParameter("reason");
    Exception outer("outer");
    outer.intParameter(1);
    outer.fileName(static_cast<const char*>(nullptr));
    outer.cause(inner);
    inner.stringParameter("changed later");
    outer.cause(Exception(outer)); // a copy, so that nothing holds itself
    const Exception copy(outer);
    outer.fileName("Place");
    EXPECT_EQ(outer.asString().substr(0, 20), "outer (1) at Place:0");
    outer.lineNumber(3);
    EXPECT_EQ(outer.asString().substr(0, 20), "outer (1) at Place:3");
    EXPECT_STREQ(copy.what(), "outer (1) <- outer (1) <- inner (4) at File:7: reason");
    EXPECT_EQ(failureOf([&] { (void)copy.cause().cause().cause(); }), "cause (1)");
}

TEST(Platform, AddressesAreDottedQuadsAndPorts)
{
    const IPAddress address("255.0.1.2");
    EXPECT_EQ(address.value(), 0xff000102U);
    EXPECT_EQ(address.asString(), "255.0.1.2");
    for (const std::string& text : {"1.2.3"s, "256.1.1.1"s, "01.2.3.4"s, "1.2.3.4\0x"s}) {
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

TEST(Platform, SignalsEndNoWaitAndPausesAreAsLongAsAsked)
{
    static std::atomic<int> signals;
    struct sigaction handler {};
    handler.sa_handler = [](int) { ++signals; };
    sigaction(SIGUSR1, &handler, nullptr);
    Semaphore semaphore(0);
    std::atomic<bool> ended{false};
    std::thread waiting([&] {
        semaphore.wait();
        ended = true;
    });
    // Each signal is handled before the next is sent, so nearly all of them interrupt a wait.
    for (int i = 1; i <= 100; ++i) {
        pthread_kill(waiting.native_handle(), SIGUSR1);
        while (signals < i && !ended) {
        }
    }
    EXPECT_FALSE(ended);
    ++semaphore;
    waiting.join();
    ks_usleep(5, 2);
    EXPECT_EQ(slept.tv_sec, 2);
    EXPECT_EQ(slept.tv_nsec, 5000);
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

} // namespace

// Replaces the C library's function, so that nothing sleeps.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" [[gnu::visibility("default")]] int nanosleep(const timespec* requested, timespec*)
{
    slept = *requested;
    return 0;
}
