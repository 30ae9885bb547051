#include "support/Program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace
{
constexpr std::chrono::seconds kPatience{50}; // with sanitizers, beside other tests, 20 can be too few

/// Moves what can be read into `text`; closes the descriptor at its end.
void drain(int* descriptor, std::string* text)
{
    char buffer[4096];
    const ssize_t size = read(*descriptor, buffer, sizeof buffer);
    if (size > 0) {
        text->append(buffer, std::size_t(size));
        return;
    }
    close(*descriptor);
    *descriptor = -1;
}
} // namespace

Program::Program(const Arguments& arguments, Input input) : Program(HOSTLINK_PROGRAM, arguments, input) {}

Program::Program(const std::string& executable, const Arguments& arguments, Input input)
{
    std::vector<std::string> words{executable};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    int in[2];
    int out[2];
    int err[2];
    EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(err, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    EXPECT_EQ(posix_spawn(&m_pid, executable.c_str(), &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    close(err[1]);
    m_in = in[1];
    fcntl(m_in, F_SETFL, O_NONBLOCK);
    m_out = out[0];
    m_err = err[0];
    if (input == Input::Empty) {
        endInput();
    }
}

Program::~Program()
{
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    close(m_in);
    close(m_out);
    close(m_err);
}

bool Program::readSome(std::chrono::steady_clock::time_point deadline)
{
    return (m_out >= 0 || m_err >= 0) && waitFor(-1, deadline);
}

/// Waits until there is something to read, or `writable` takes more where it is a descriptor, and reads.
/// False when that did not come in time.
bool Program::waitFor(int writable, std::chrono::steady_clock::time_point deadline)
{
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd descriptors[] = {{m_out, POLLIN, 0}, {m_err, POLLIN, 0}, {writable, POLLOUT, 0}};
    if (left.count() <= 0 || poll(descriptors, 3, int(left.count())) <= 0) {
        return false;
    }
    if (descriptors[0].revents != 0) {
        drain(&m_out, &m_outText);
    }
    if (descriptors[1].revents != 0) {
        drain(&m_err, &m_errText);
    }
    return true;
}

std::string Program::waitForLine(const std::string& begin)
{
    std::size_t from = 0;
    return findLine(&from, begin, [&](const std::string& line) { return line.rfind(begin, 0) == 0; });
}

std::string Program::nextLineWith(const std::string& part)
{
    return findLine(&m_found, part, [&](const std::string& line) { return line.find(part) != line.npos; });
}

/// Waits for a line that is wanted, `*from` being where to look; leaves it behind the line.
template <typename Wanted>
std::string Program::findLine(std::size_t* from, const std::string& what, Wanted wanted)
{
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    do {
        for (std::size_t end; (end = m_outText.find('\n', *from)) != std::string::npos;) {
            const std::string line = m_outText.substr(*from, end - *from);
            *from = end + 1;
            if (wanted(line)) {
                return line;
            }
        }
    } while (m_out >= 0 && readSome(deadline));
    ADD_FAILURE() << "no line with '" << what << "'; standard output: " << m_outText
                  << "; standard error: " << m_errText;
    return {};
}

void Program::type(const std::string& text)
{
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t size = write(m_in, text.data() + done, text.size() - done);
        if (size > 0) {
            done += std::size_t(size);
            continue;
        }
        ASSERT_TRUE(errno == EAGAIN && waitFor(m_in, deadline)) << "the program does not read its input";
    }
}

void Program::endInput()
{
    close(m_in);
    m_in = -1;
}

void Program::stopReading()
{
    close(m_out);
    m_out = -1;
}

bool Program::waitForError(const std::string& part)
{
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    do {
        if (m_errText.find(part) != std::string::npos) {
            return true;
        }
    } while (m_err >= 0 && readSome(deadline));
    return false;
}

void Program::signal(int number)
{
    kill(m_pid, number);
}

ProgramResult Program::wait()
{
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (readSome(deadline)) {
    }
    if (m_out >= 0 || m_err >= 0) {
        ADD_FAILURE() << "the program does not end; standard output: " << m_outText
                      << "; standard error: " << m_errText;
        kill(m_pid, SIGKILL);
    }
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), m_outText, m_errText};
}

ProgramResult Program::run(const Arguments& arguments)
{
    return Program(arguments).wait();
}
