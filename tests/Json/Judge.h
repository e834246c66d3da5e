/// @file
/// Compares how the library and the reference read and write a text.
#pragma once

#include <string>

#include "Tolvex/Json/Json.h"

#include "tests/Json/Reference.h"

namespace Tolvex::Json::Judge {

/// What one reading of a text gave: a tree, or the exception that left it.
struct Outcome
{
    Reference::Node tree;
    std::string exception;   ///< name of the exception's type; empty when there was none
    bool malformed = false;  ///< of the reference: a container is malformed, or an exception left
};

/// Reads the text as the rules say. At most some thousand levels deep.
Outcome ReadByReference(const std::string& text);

/// Reads the text with the library, into the reference's own kind of tree.
Outcome ReadByLibrary(const std::string& text);

/// Whether tags, all mirrors of numbers (bit by bit), strings, keys and order are the same, and no
/// number carries an inactive member.
bool Same(const Value& value, const Reference::Node& node);

/// The same tree as a library value, through its public constructors.
Value ToValue(const Reference::Node& node);

/// The whole tree in one line, as JSON with these differences: a double always shows a point or an
/// exponent, strings and keys are shown by Quoted(), and a number whose mirrors do not belong
/// together, like every NaN and every float, shows all of them.
std::string Describe(const Reference::Node& node);

/// The tree, or "throws " and the exception's name.
std::string Describe(const Outcome& outcome);

/// The text as a C string literal.
std::string Quoted(const std::string& text);

/// Reads the text both ways, writes what was read both ways, and reads that both ways again.
///
/// @return what the library got wrong, or an empty text.
std::string Complaint(const std::string& text);

/// Shortens a text while the library still gets it wrong.
std::string Minimised(std::string text);

}  // namespace Tolvex::Json::Judge
