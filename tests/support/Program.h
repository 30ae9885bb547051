#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

/// How a program ended and what it wrote.
struct ProgramResult {
    int status;      ///< exit status, or minus the signal that ended it
    std::string out; ///< standard output
    std::string err; ///< standard error
};

/// A running hostlink command, for one thread. What it does not do in time is a failed test, never a hanging
/// one.
class Program
{
public:
    using Arguments = std::vector<std::string>;

    enum class Input { Empty, Typed };

    /// Starts `hostlink ARGUMENTS...`; what it reads is empty, or comes with type().
    explicit Program(const Arguments& arguments, Input input = Input::Empty);

    /// Starts another executable.
    Program(const std::string& executable, const Arguments& arguments, Input input);

    ~Program(); ///< kills it where it still runs

    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Waits until a whole line of standard output begins so, and returns it without its end; empty
    /// when it never came.
    std::string waitForLine(const std::string& begin);

    /// Waits until a whole line of standard output holds `part`, looking behind the one that was found last,
    /// and returns it without its end; empty when it never came.
    std::string nextLineWith(const std::string& part);

    /// Puts text on its standard input; reads what it writes while it does not read.
    void type(const std::string& text);

    /// Ends its standard input.
    void endInput();

    /// Closes its standard output's other end.
    void stopReading();

    /// Waits until standard error holds this; false when it never did.
    bool waitForError(const std::string& part);

    void signal(int number);

    /// Waits for the end.
    ProgramResult wait();

    /// Starts and waits.
    static ProgramResult run(const Arguments& arguments);

private:
    template <typename Wanted>
    std::string findLine(std::size_t* from, const std::string& what, Wanted wanted);
    bool readSome(std::chrono::steady_clock::time_point deadline);
    bool waitFor(int writable, std::chrono::steady_clock::time_point deadline);

    pid_t m_pid = -1;
    int m_in = -1;
    int m_out = -1;
    int m_err = -1;
    std::string m_outText;
    std::string m_errText;
    std::size_t m_found = 0; ///< behind the line that nextLineWith() found last
};
