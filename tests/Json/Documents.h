/// @file
/// Makes any number of documents: well-formed, odd and spoilt. The same seed makes the same ones.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/Json/Reference.h"

namespace Tolvex::Json::Judge {

/// Small fast generator (splitmix64): the same numbers on every platform.
class Random
{
public:
    explicit Random(std::uint64_t seed) : state(seed) {}

    std::uint64_t Next();

    /// A number below bound, which is at least 1.
    std::size_t Below(std::size_t bound);

    /// True in one of so many calls, on average.
    bool OneIn(std::size_t calls) { return Below(calls) == 0; }

private:
    std::uint64_t state;
};

/// Makes one document after another. Most have 10 to 200 bytes, few more than 1000.
class DocumentMaker
{
public:
    explicit DocumentMaker(std::uint64_t seed) : random(seed) {}

    /// A text of any kind: a well-formed one, a spoilt one, or a heap of pieces.
    std::string Make();

private:
    void AppendDocument();
    void AppendValue(int depth);
    void AppendObject(int depth);
    void AppendArray(int depth);
    void AppendMember(int depth);
    void AppendScalar();
    void AppendNumber();
    void AppendDigits();
    void AppendString();
    void AppendStringPiece();
    void AppendBlanks();
    void AppendTower();
    void AppendHeap();
    void AppendKnots();
    void AppendCollection();
    void Spoil();
    void SpoilOnce();
    void SwapBracket();
    void CopyRange();
    std::size_t Position();

    Random random;
    std::string text;      ///< the document being made
    std::string previous;  ///< the one before, to graft pieces from
};

/// A random tree that an application can build, but no text: strings of any bytes, numbers of any
/// size, nulls, floats. At most a few dozen nodes.
Reference::Node MakeTree(Random& random, int depth);

}  // namespace Tolvex::Json::Judge
