#include <gtest/gtest.h>

#include <QCoreApplication>
#include <cstdio>

#include "support/PrivateRoot.h"

/// Tests run in a private root only; what merely lists them needs none.
int main(int argc, char** argv)
{
    const std::vector<char*> arguments(argv, argv + argc + 1);
    ::testing::InitGoogleTest(&argc, argv);
    if (!::testing::GTEST_FLAG(list_tests) && !isInPrivateRoot()) {
        runInPrivateRoot(const_cast<char**>(arguments.data()));
        std::perror("private root");
        return 1;
    }
    QCoreApplication application(argc, argv);
    return RUN_ALL_TESTS();
}
