#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

/// Is another user while it lives, as far as files and sockets are concerned. Only root can become one.
class AsUser
{
public:
    explicit AsUser(uid_t user) { EXPECT_EQ(::seteuid(user), 0); }
    ~AsUser() { EXPECT_EQ(::seteuid(::getuid()), 0); }

    AsUser(const AsUser&) = delete;
    AsUser& operator=(const AsUser&) = delete;

    static bool canBecome() { return ::getuid() == 0; }

    static constexpr uid_t kNobody = 65534;
    static constexpr uid_t kSomebody = 65533;
};
