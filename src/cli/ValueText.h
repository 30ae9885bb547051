#pragma once

#include <string>

#include "platform/hostlink/HostLinkValueMessage.h"
#include "vocabulary/States.h"

// States and values as text: what users type, and what commands print. The forms are stable, since
// scripts read and write them.

/// A state by its name with or without "STA_", in decimal, or as 0x and hexadecimal digits. Throws
/// CLI::ValidationError, with up to three similar names, for anything else.
State parseState(const std::string& text);

/// Appends the value of "STATE=VALUE" to `message`, tagged with the state, which is returned.
///
/// VALUE is taken as the type that the host writes to the state, or as the type in front of it:
/// u8: u16: u32: i8: i32: i64: str: bin:. The single word nil is the value without content. Only
/// these words directly followed by a colon are types: other text with colons in it is plain. Text that
/// begins like a type, or is the word nil, needs the prefix: "STATE=str:u8:5", "STATE=str:nil".
/// Numbers are decimal or 0x hexadecimal, bytes are pairs of hexadecimal digits.
///
/// Throws CLI::ValidationError and appends nothing when the value does not fit its type, or has no type
/// and none is known for the state.
State appendAssignment(const std::string& text, HostLinkValueMessage* message);

/// Value `index` as NAME<TAB>TYPE<TAB>VALUE, without a line end. In text, tab, newline, carriage return and
/// backslash are \t, \n, \r and \\; bytes are lower-case hexadecimal digits; nil is empty.
std::string valueLine(const HostLinkValueMessage& message, int index);

/// The line of a state for which there is no value: NAME<TAB>none<TAB>.
std::string noneLine(State state);

/// Value `index` as a JSON object with the keys name, state (the number), type and value, without a line
/// end. Nil is null, bytes are a string of hexadecimal digits, and a byte of text that is not UTF-8 is
/// U+FFFD.
std::string valueJson(const HostLinkValueMessage& message, int index);

/// The object of a state for which there is no value: its type is "none" and its value null.
std::string noneJson(State state);
