#include <Kestro/Exception.h>
#include <Kestro/SocketAddress.h>
#include <Kestro/Threads.h>
#include <basepp/dbg.h>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

using namespace Kestro;

TEST(Exception, TellsEverythingOnceAndCopiesKeepIt)
{
    Exception inner("inner", 4, "File", 7);
    inner.stringParameter("reason");
    Exception middle("middle");
    middle.cause(inner);
    Exception outer("outer", 1);
    outer.fileName(static_cast<const char*>(nullptr));
    outer.cause(middle);
    outer.cause(outer.cause()); // its own cause again: replaced, not doubled
    inner.stringParameter("changed later");
    middle = inner;

    const Exception copy(outer);
    outer.lineNumber(3);
    try {
        throw copy;
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "outer (1) <- middle (0) <- inner (4) at File:7: reason");
    }
    EXPECT_EQ(copy.cause().cause().lineNumber(), 7U);
    EXPECT_FALSE(copy.cause().cause().hasCause());
    try {
        (void)copy.cause().cause().cause();
        ADD_FAILURE();
    } catch (const Exception& e) {
        EXPECT_EQ(e.asString(), "cause (1)");
    }
}

TEST(SocketAddress, TakesDottedQuadsAndPortsOnly)
{
    EXPECT_EQ(IPAddress("255.0.1.2").value(), 0xff000102U);
    EXPECT_EQ(IPAddress("255.0.1.2").asString(), "255.0.1.2");
    EXPECT_FALSE(IPAddress("1.2.3.4") == IPAddress("1.2.3.5"));
    for (const std::string& text :
         {std::string(), std::string("1.2.3"), std::string("1.2.3.4.5"), std::string("256.1.1.1"),
          std::string("01.2.3.4"), std::string("1.2.3.4 "), std::string("localhost"),
          std::string("-1.2.3.4"), std::string("1.2.3.4\0x", 9)}) {
        try {
            IPAddress address(text);
            ADD_FAILURE() << text;
        } catch (const Exception& e) {
            EXPECT_EQ(e.message(), "IPAddress");
            EXPECT_EQ(e.stringParameter(), text);
        }
    }
    const IPAddress local("127.0.0.1");
    EXPECT_EQ(SocketAddress(local, 65535).asINET().port, 65535U);
    EXPECT_THROW(SocketAddress(local, 65536), Exception);
    EXPECT_FALSE(SocketAddress(local, 1) == SocketAddress(local, 2));
}

TEST(Threads, MutexIsRecursiveAndSemaphoreCounts)
{
    Mutex mutex;
    Semaphore free(2);
    int lent = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 1000; ++round) {
                free.wait();
                const Synchronized outer(mutex);
                const Synchronized inner(mutex);
                ++lent;
                ++free;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(lent, 4000);
    EXPECT_TRUE(free.trywait());
    EXPECT_TRUE(free.trywait());
    EXPECT_FALSE(free.trywait());
    EXPECT_THROW(Semaphore(1U << 31), Exception);
}

TEST(Trace, WritesOneLineAndCutsIt)
{
    testing::internal::CaptureStderr();
    basepp::dbg::debug("File", 37, "function", 0, "%s", "one\ntwo");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "File:37 function 0: one two\n");
    testing::internal::CaptureStderr();
    basepp::dbg::debug("File", 37, "function", 0, "%s", std::string(9999, 'x').c_str());
    const std::string cut = testing::internal::GetCapturedStderr();
    EXPECT_EQ(cut.size(), 4096U);
    EXPECT_EQ(cut.substr(4094), "x\n");
    EXPECT_EQ(*basepp_dbg_mask_, 0x80008U); // as the environment says
}

} // namespace
