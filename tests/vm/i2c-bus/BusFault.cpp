#include "vm/i2c-bus/BusFault.h"

#include <sstream>
#include <stdexcept>

namespace
{
unsigned numberFrom(std::istringstream& words)
{
    unsigned number = 0;
    if (!(words >> number) || number == 0) {
        throw std::invalid_argument("there a number from 1 is needed");
    }
    return number;
}

BusFault::Kind kindOf(const std::string& word)
{
    using Kind = BusFault::Kind;
    if (word == "heal") {
        return Kind::None;
    }
    if (word == "refuse") {
        return Kind::Refuse;
    }
    if (word == "stall") {
        return Kind::Stall;
    }
    if (word == "cut") {
        return Kind::Cut;
    }
    if (word == "float") {
        return Kind::Float;
    }
    throw std::invalid_argument("no such command");
}
} // namespace

BusFault BusFault::parse(const std::string& text)
{
    std::istringstream words(text);
    std::string word;
    words >> word;
    BusFault fault;
    fault.kind = kindOf(word);
    if (fault.kind == Kind::Stall || fault.kind == Kind::Cut) {
        fault.amount = numberFrom(words);
    }
    if (!(words >> word)) {
        return fault;
    }
    if (word != "every") {
        throw std::invalid_argument("'" + word + "' was not expected");
    }
    fault.every = numberFrom(words);
    return fault;
}
