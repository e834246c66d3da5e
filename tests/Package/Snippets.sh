#!/usr/bin/env bash
# Checks that the code in comments of headers and in documents compiles, and that every public header
# has a snippet or names an example.
source "$(dirname "$0")/common.sh"
cd "$source"

# Prints the @code of headers and the ```cpp of documents as one source file. Code that cannot be in a
# function is put outside; #line makes the compiler name the place in the document.
snippets() {
    awk '
        function flush() {
            outside = snippet ~ /\n(#include|int main|template <)/ || snippet ~ /TOLVEX_EXPORT/
            printf "%s", outside ? "" : "[[maybe_unused]] static void Snippet" ++count "()\n{\n"
            printf "#line %d \"%s\"%s", start, FILENAME, snippet
            printf "%s", outside ? "" : "}\n"
        }
        /^(\/\/\/ @code|```cpp)$/ { inside = 1; snippet = "\n"; start = FNR + 1; next }
        /^(\/\/\/ @endcode|```)$/ { if (inside) flush(); inside = 0; next }
        inside { sub(/^\/\/\/ ?/, ""); snippet = snippet $0 "\n" }
    ' "$@"
}

headers=$(sed -n 's/^#include "\(.*\)"/\1/p' Tolvex/Tolvex.h)
[ -n "$headers" ] || fail "Tolvex.h includes nothing"
documents=$(find . -name '*.md' -not -path './build/*' -printf '%P\n')

echo "- every public header has a snippet or names an example"
for header in $headers; do
    grep -qE '^/// @code$|examples/[A-Za-z]+\.cpp' "$header" || fail "$header"
done

echo "- the examples that are named are built and run"
for name in $(grep -ohE 'examples/[A-Za-z]+\.cpp' $headers $documents | sort -u); do
    grep -q "^tolvex_add_example($(basename "$name" .cpp)[ )]" examples/CMakeLists.txt || fail "$name"
done

echo "- the snippets compile"
{
    printf '#include <%s>\n' array chrono ctime filesystem iostream pthread.h string thread
    echo '#include "Tolvex/Tolvex.h"'
    echo 'using namespace Tolvex;'
    echo 'using namespace Tolvex::Ilog;'
    snippets Tolvex/Tolvex.h $headers $documents
} >"$scratch/snippets.cpp"
taken=$(grep -c '^#line' "$scratch/snippets.cpp")
there=$(grep -hE '@code|```cpp' Tolvex/Tolvex.h $headers $documents | wc -l)
[ "$taken" -eq "$there" ] || fail "$taken of $there snippets found"
"${compile[@]}" -Wno-unused -I . -fsyntax-only "$scratch/snippets.cpp"
