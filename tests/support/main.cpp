#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    const int failed = RUN_ALL_TESTS();
    const bool ranAny = testing::UnitTest::GetInstance()->test_to_run_count() > 0;
    return failed != 0 || !ranAny ? 1 : 0;
}
