#pragma once

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

/// Keeps every line that is logged on "HostLink", or on another logger and those below it, while it lives; at
/// all levels unless told otherwise.
class LogCapture
{
public:
    struct Line {
        log4cplus::LogLevel level;
        std::string text;
    };

    explicit LogCapture(log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL,
                        const std::string& logger = "HostLink")
        : m_logger(log4cplus::Logger::getInstance(logger)), m_levelBefore(m_logger.getLogLevel()),
          m_appender(new Appender(m_lines))
    {
        m_logger.setLogLevel(level);
        m_logger.setAdditivity(false);
        m_logger.addAppender(m_appender);
    }

    ~LogCapture()
    {
        m_logger.removeAppender(m_appender);
        m_logger.setAdditivity(true);
        m_logger.setLogLevel(m_levelBefore);
    }

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void clear() { m_lines.clear(); }
    void setLevel(log4cplus::LogLevel level) { m_logger.setLogLevel(level); }
    const std::vector<Line>& lines() const { return m_lines; }

    /// The texts of one level, in order.
    std::vector<std::string> texts(log4cplus::LogLevel level) const
    {
        std::vector<std::string> found;
        for (const Line& line : m_lines) {
            if (line.level == level) {
                found.push_back(line.text);
            }
        }
        return found;
    }

    /// The texts of a level and of all that are graver, in order.
    std::vector<std::string> textsFrom(log4cplus::LogLevel level) const
    {
        std::vector<std::string> found;
        for (const Line& line : m_lines) {
            if (line.level >= level) {
                found.push_back(line.text);
            }
        }
        return found;
    }

    std::vector<std::string> errors() const { return texts(log4cplus::ERROR_LOG_LEVEL); }
    std::vector<std::string> warnings() const { return texts(log4cplus::WARN_LOG_LEVEL); }
    std::vector<std::string> infos() const { return texts(log4cplus::INFO_LOG_LEVEL); }
    std::vector<std::string> debugs() const { return texts(log4cplus::DEBUG_LOG_LEVEL); }
    std::vector<std::string> traces() const { return texts(log4cplus::TRACE_LOG_LEVEL); }

    /// How often exactly this line was logged.
    std::size_t count(log4cplus::LogLevel level, const std::string& text) const
    {
        return static_cast<std::size_t>(std::count_if(m_lines.begin(), m_lines.end(), [&](const Line& line) {
            return line.level == level && line.text == text;
        }));
    }

private:
    class Appender : public log4cplus::Appender
    {
    public:
        explicit Appender(std::vector<Line>& lines) : m_lines(lines) {}
        ~Appender() override { destructorImpl(); }
        void close() override {}

    protected:
        void append(const log4cplus::spi::InternalLoggingEvent& event) override
        {
            m_lines.push_back({event.getLogLevel(), asGccSpells(event.getMessage())});
        }

    private:
        /// A trace has a function's name in it, in which compilers differ.
        static std::string asGccSpells(std::string text)
        {
#ifdef __clang__
            constexpr const char* kSpellings[][2] = {
                {"(anonymous namespace)", "{anonymous}"}, {" &", "&"}, {" *", "*"}};
            for (const auto& [clang, gcc] : kSpellings) {
                for (std::size_t at = 0; (at = text.find(clang, at)) != std::string::npos;) {
                    text.replace(at, std::strlen(clang), gcc);
                }
            }
#endif
            return text;
        }

        std::vector<Line>& m_lines;
    };

    std::vector<Line> m_lines;
    log4cplus::Logger m_logger;
    log4cplus::LogLevel m_levelBefore;
    log4cplus::SharedAppenderPtr m_appender;
};
