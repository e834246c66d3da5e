#!/usr/bin/env bash
# Installs to a staging root, moves it, and builds and runs a user's program against it: with CMake,
# with pkg-config, and as a subproject.
source "$(dirname "$0")/common.sh"

cmake --install "$build" --prefix "$scratch/staged" >"$scratch/install.log"
mv "$scratch/staged" "$scratch/moved"
installed=$scratch/moved
consumer=$source/tests/Package/consumer

echo "- no path of the build in what is installed"
if grep -rIl -e "$source" -e "$build" -e "$scratch/staged" "$installed"; then
    fail "a path of the build machine"
fi

echo "- the installed driver"
expect_driver timeout 20 "$installed/bin/tolvex-driver"

echo "- find_package"
cmake -S "$consumer" -B "$scratch/cmake" -G Ninja "-DCMAKE_CXX_COMPILER=$compiler" \
    "-DCMAKE_PREFIX_PATH=$installed" >"$scratch/cmake.log"
cmake --build "$scratch/cmake" >"$scratch/cmake.log"
expect "called back" "$scratch/cmake/consumer"
expect_driver timeout 20 "$scratch/cmake/mainless"

echo "- pkg-config"
pkgconfig=$(dirname "$(find "$installed" -name tolvex.pc)")
export PKG_CONFIG_PATH=$pkgconfig
read -r -a flags < <(pkg-config --cflags --libs tolvex)
[ "$(pkg-config --modversion tolvex)" = "$(project_version)" ] || fail "the version in tolvex.pc"
"$compiler" -std=c++20 -Wall -Wextra -Werror "$consumer/main.cpp" "${flags[@]}" -o "$scratch/program"
expect "called back" env "LD_LIBRARY_PATH=$(dirname "$pkgconfig")" "$scratch/program"

echo "- a program with another time_t does not compile"
foreign=${flags[*]/-DTOLVEX_TIME_T_BYTES=*/-DTOLVEX_TIME_T_BYTES=2}
[[ $foreign == *TIME_T_BYTES=2* ]] || fail "tolvex.pc does not record the width of time_t"
if "$compiler" -std=c++20 -fsyntax-only "$consumer/main.cpp" $foreign 2>"$scratch/error.log"; then
    fail "it compiled"
fi
grep -q "This program's time_t differs" "$scratch/error.log" || fail "$(cat "$scratch/error.log")"

echo "- a program of an older standard is told so"
if "$compiler" -std=c++17 -fsyntax-only "$consumer/main.cpp" "${flags[@]}" 2>"$scratch/error.log"; then
    fail "it compiled"
fi
grep -q "Tolvex needs C++20" "$scratch/error.log" || fail "$(cat "$scratch/error.log")"

echo "- every installed header compiles alone, and Tolvex.h includes all others"
for header in $(cd "$installed/include" && find Tolvex -name '*.h'); do
    grep -qx "#include \"$header\"" "$source/Tolvex/Tolvex.h" || [ "$header" = Tolvex/Tolvex.h ] ||
        fail "Tolvex.h lacks $header"
    echo "#include \"$header\"" >"$scratch/header.cpp"
    "$compiler" -std=c++20 -fsyntax-only -Wall -Wextra -Werror "${flags[@]}" "$scratch/header.cpp"
done

echo "- add_subdirectory"
cmake -S "$consumer" -B "$scratch/sub" -G Ninja "-DCMAKE_CXX_COMPILER=$compiler" \
    "-DTOLVEX_SOURCE=$source" >"$scratch/sub.log"
cmake --build "$scratch/sub" --target consumer >"$scratch/sub.log"
expect "called back" "$scratch/sub/consumer"
cmake --install "$scratch/sub" --prefix "$scratch/nothing" >"$scratch/sub.log"
[ ! -e "$scratch/nothing" ] || fail "the subproject installs files"
