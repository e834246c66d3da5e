#!/usr/bin/env bash
# The gate over markers, tests and page, on a small tree of its own.
source "$(dirname "$0")/common.sh"

tree=$scratch/tree
mkdir -p "$tree"/{scripts,docs,Tolvex/Box,tests/Box}
cp "$source/scripts/required-behaviours" "$tree/scripts/"
code=$tree/Tolvex/Box/Lid.cpp
tests=$tree/tests/Box/LidTest.cpp

# write_tree: a tree in which everything fits.
write_tree() {
    cat >"$code" <<'END'
namespace Box {

// Required: the lid stays open, which
// looks wrong. Instead: Shut().
template <typename Hand, typename Lid>
bool Lid<Hand, Lid>::Close()
{
    {
        Push();  // Required: only half of it | is pushed.
    }
    // Required text: the doubled "has" is part of it.
    return false;
}

class Hinge
{
public:
    /// Required: always 7.
    int Size() const { return 7; }
};

}  // namespace Box
END
    cat >"$tests" <<'END'
// Holds: Box/Lid.cpp: the lid stays
// Holds: Box/Lid.cpp: the doubled
TEST(LidTest, StaysOpen)
{
}

TEST_P(LidTableTest,
       DoesAsTheTableSays)
{
}

const Row rows[] = {
    {"Nothing", 0},
    // Holds: Box/Lid.cpp: only half of it
    {"Half", 1},
};

// As before.
// Holds: Box/Lid.cpp: always 7
// Holds: Box/Lid.cpp: only half
TEST_F(HingeTest, HasSizeSeven)
{
}
END
}

run() {
    status=0
    "$tree/scripts/required-behaviours" "$@" >"$scratch/out" 2>"$scratch/error" || status=$?
}
# passes [--check]; refuses TEXT: the check fails and its only complaint is the text.
passes() {
    run "$@"
    [ $status -eq 0 ] && [ ! -s "$scratch/error" ] || fail "status $status: $(cat "$scratch/error")"
}
refuses() {
    run --check
    [ $status -eq 1 ] || fail "exit status $status"
    [ "$(cat "$scratch/error")" = "$1" ] || fail "said: $(cat "$scratch/error")"
}

echo "- a tree in which everything fits"
write_tree
passes
passes --check
cat >"$scratch/expected" <<'END'
## Box
| Where | What happens | Held by | Instead |
|---|---|---|---|
| `Lid::Close` in [Lid.cpp](../Tolvex/Box/Lid.cpp) | The lid stays open, which looks wrong. | [`LidTest.StaysOpen`](../tests/Box/LidTest.cpp) | Shut(). |
| `Lid::Close` in [Lid.cpp](../Tolvex/Box/Lid.cpp) | Only half of it \| is pushed. | [`HingeTest.HasSizeSeven`](../tests/Box/LidTest.cpp)<br>[`LidTableTest.DoesAsTheTableSays/Half`](../tests/Box/LidTest.cpp) | |
| `Lid::Close` in [Lid.cpp](../Tolvex/Box/Lid.cpp) | Text: the doubled "has" is part of it. | [`LidTest.StaysOpen`](../tests/Box/LidTest.cpp) | |
| `Hinge::Size` in [Lid.cpp](../Tolvex/Box/Lid.cpp) | Always 7. | [`HingeTest.HasSizeSeven`](../tests/Box/LidTest.cpp) | |
END
diff "$scratch/expected" <(grep -A 9 '^## Box' "$tree/docs/required-behaviours.md" | grep -v '^$') ||
    fail "the page"

echo "- a marker without a test"
sed -i '/always 7/d' "$tests"
refuses "Tolvex/Box/Lid.cpp: no test names this marker: always 7."

echo "- a test that names no marker"
write_tree
sed -i 's/: always 7$/: always 8/' "$tests"
sed -i 's/^TEST(/\/\/ Holds: Box\/Lid.cpp: always 7\n&/' "$tests"
refuses "tests/Box/LidTest.cpp:20: no marker of Box/Lid.cpp begins so: always 8"

echo "- a test that names half a word of a marker"
write_tree
sed -i 's/^TEST(/\/\/ Holds: Box\/Lid.cpp: alw\n&/' "$tests"
refuses "tests/Box/LidTest.cpp:3: no marker of Box/Lid.cpp begins so: alw"

echo "- a test that names two markers in one"
write_tree
sed -i 's/^TEST(/\/\/ Holds: Box\/Lid.cpp: the\n&/' "$tests"
refuses "tests/Box/LidTest.cpp:3: several markers of Box/Lid.cpp begin so: the"

echo "- a name that stands above no test"
write_tree
sed -i 's/^TEST_F/\n&/; s/^TEST(/\/\/ Holds: Box\/Lid.cpp: always\n\/\/ Holds: Box\/Lid.cpp: only\n&/' "$tests"
refuses "tests/Box/LidTest.cpp:21: stands above no test: Holds: Box/Lid.cpp: always 7
tests/Box/LidTest.cpp:22: stands above no test: Holds: Box/Lid.cpp: only half"

echo "- a page that is out of date"
stale="docs/required-behaviours.md: out of date; scripts/required-behaviours writes it anew"
write_tree
sed -i 's/always 7/always 7 or more/' "$code"
refuses "$stale"
write_tree
sed -i 's/StaysOpen/StaysAjar/' "$tests"
refuses "$stale"
write_tree
echo "More." >>"$tree/docs/required-behaviours.md"
refuses "$stale"
rm "$tree/docs/required-behaviours.md"
refuses "$stale"
[ ! -e "$tree/docs/required-behaviours.md" ] || fail "the check writes the page"
passes
passes --check
