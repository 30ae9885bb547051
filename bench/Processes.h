#pragma once

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// Processes that benchmarks start and compare.

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

inline double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// One result of a run, as bench/run reads it.
inline void report(const char* name, double value)
{
    std::printf("%s\t%.9g\n", name, value);
}

/// What a program's main does: what goes wrong is said under the program's name, and ends it with 1.
template <typename Measure>
int runBench(Measure measure)
try {
    measure();
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, error.what());
    return 1;
}

/// Two connected Unix sockets; `flags` are those of a socket's type.
inline void openPair(int (&ends)[2], int flags = 0)
{
    if (socketpair(AF_UNIX, SOCK_STREAM | flags, 0, ends) != 0) {
        throw std::runtime_error("socketpair failed");
    }
}

/// Keeps this process, and those that it starts, on one core; anywhere when it is negative.
inline void pinTo(int core)
{
    if (core < 0) {
        return;
    }
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(core, &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) {
        std::perror("warning: cannot pin to a core");
    }
}

/// Processor time that a process and all its threads have used, in seconds.
inline double processorSeconds(pid_t process)
{
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
        throw std::runtime_error("cannot read the processor time of a process");
    }
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
}

/// A directory of its own that goes with it.
class BenchDirectory
{
public:
    explicit BenchDirectory(const std::string& above = "/tmp") : m_path(above + "/hostlink-bench.XXXXXX")
    {
        if (mkdtemp(m_path.data()) == nullptr) {
            throw std::runtime_error("cannot make a directory below " + above);
        }
    }
    ~BenchDirectory() { std::filesystem::remove_all(m_path); }

    std::string operator/(const std::string& name) const { return m_path + '/' + name; }

private:
    std::string m_path;
};

/// A running program; it is terminated with this object, if nobody waited for it.
class Process
{
public:
    /// Descriptors of the program's standard input and output; -1 for /dev/null. Errors go to /dev/null.
    explicit Process(const std::vector<std::string>& arguments, int in = -1, int out = -1,
                     const std::string& directory = ".")
        : m_pid(fork())
    {
        if (m_pid != 0) {
            return;
        }
        const int null = open("/dev/null", O_RDWR);
        dup2(in < 0 ? null : in, 0);
        dup2(out < 0 ? null : out, 1);
        dup2(null, 2);
        closefrom(3);
        std::vector<char*> list;
        for (const std::string& argument : arguments) {
            list.push_back(const_cast<char*>(argument.c_str()));
        }
        list.push_back(nullptr);
        if (chdir(directory.c_str()) == 0) {
            execvp(list.front(), list.data());
        }
        _exit(127);
    }

    ~Process()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
    }

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return m_pid; }
    void terminate() { kill(m_pid, SIGTERM); }

    /// Waits for the end; returns the processor time that it took, in seconds.
    double wait()
    {
        int status = 0;
        rusage usage{};
        wait4(std::exchange(m_pid, -1), &status, 0, &usage);
        m_status = status;
        const auto seconds = [](const timeval& time) {
            return double(time.tv_sec) + double(time.tv_usec) / 1e6;
        };
        return seconds(usage.ru_utime) + seconds(usage.ru_stime);
    }

    bool succeeded() const { return WIFEXITED(m_status) && WEXITSTATUS(m_status) == 0; }

private:
    pid_t m_pid;
    int m_status = -1;
};

/// A copy of this process on a core of its own, which serves until this object goes.
class Server
{
public:
    template <typename Serve>
    Server(int core, Serve serve)
    {
        std::fflush(stdout);
        m_pid = fork();
        if (m_pid != 0) {
            return;
        }
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        pinTo(core);
        try {
            serve();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "server: %s\n", error.what());
        }
        _exit(0);
    }

    ~Server()
    {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    pid_t pid() const { return m_pid; }

private:
    pid_t m_pid;
};

/// Polls until something outside has happened; throws when it does not.
template <typename Condition>
void await(const char* what, Condition condition)
{
    const auto begin = Clock::now();
    while (!condition()) {
        if (secondsSince(begin) > 20) {
            throw std::runtime_error(std::string("there is no ") + what);
        }
        usleep(1000);
    }
}
