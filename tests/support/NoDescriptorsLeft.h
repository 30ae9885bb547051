#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

/// While it lives, this process gets no descriptor.
class NoDescriptorsLeft
{
public:
    NoDescriptorsLeft()
    {
        EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &m_before), 0);
        const int lowestFree = ::dup(STDIN_FILENO);
        ::close(lowestFree);
        const rlimit none{rlim_t(lowestFree), m_before.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    }
    ~NoDescriptorsLeft() { EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &m_before), 0); }
    NoDescriptorsLeft(const NoDescriptorsLeft&) = delete;
    NoDescriptorsLeft& operator=(const NoDescriptorsLeft&) = delete;

private:
    rlimit m_before{};
};
