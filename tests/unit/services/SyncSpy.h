#pragma once

#include <functional>
#include <string>

/// While it lives, sees every fsync of this program, which it replaces: the disk is not asked.
class SyncSpy
{
public:
    /// Gets the path of the file; an error number that it returns is what the call fails with.
    using Handler = std::function<int(const std::string& path)>;

    explicit SyncSpy(Handler handler);
    ~SyncSpy();
    SyncSpy(const SyncSpy&) = delete;
    SyncSpy& operator=(const SyncSpy&) = delete;
};
