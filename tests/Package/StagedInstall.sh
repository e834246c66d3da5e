#!/usr/bin/env bash
# Installs to a staging root, moves it, and builds and runs a user's program against it: with CMake,
# with pkg-config, by the command line of README.md, and as a subproject.
source "$(dirname "$0")/common.sh"

cmake --install "$build" --prefix "$scratch/staged" >"$scratch/install.log"
mv "$scratch/staged" "$scratch/moved"
installed=$scratch/moved
consumer=$source/tests/Package/consumer
project=(-S "$consumer" -G Ninja)
if [ -z "$tools" ]; then
    project+=("-DCMAKE_CXX_COMPILER=$compiler" "-DCMAKE_PREFIX_PATH=$installed")
else
    export TOLVEX_ARM_SYSROOT=${emulator[-1]}
    project+=("-DCMAKE_TOOLCHAIN_FILE=$source/cmake/ArmToolchain.cmake"
        "-DCMAKE_FIND_ROOT_PATH=$installed")
fi

echo "- no path of the build in what is installed"
if grep -rIl -e "$source" -e "$build" -e "$scratch/staged" "$installed"; then
    fail "a path of the build machine"
fi

echo "- the installed driver"
expect_driver "$installed/bin/tolvex-driver"

echo "- find_package"
cmake "${project[@]}" -B "$scratch/cmake" >"$scratch/cmake.log"
cmake --build "$scratch/cmake" >"$scratch/cmake.log"
expect "called back" "$scratch/cmake/consumer"
expect_driver "$scratch/cmake/mainless"

echo "- pkg-config"
pkgconfig=$(dirname "$(find "$installed" -name tolvex.pc)")
export PKG_CONFIG_PATH=$pkgconfig
export LD_LIBRARY_PATH
LD_LIBRARY_PATH=$(dirname "$pkgconfig")
[ "$(pkg-config --modversion tolvex)" = "$(project_version)" ] || fail "the version in tolvex.pc"
read -r -a flags < <(pkg-config --cflags --libs tolvex)
"${compile[@]}" "$consumer/main.cpp" "${flags[@]}" -o "$scratch/program"
expect "called back" "$scratch/program"

if [ -z "$tools" ]; then
    echo "- the program and the command line of README.md"
    mkdir "$scratch/readme"
    sed -n '/^```cpp$/,/^```$/p' "$source/README.md" | sed '/^```/d' >"$scratch/readme/app.cpp"
    command=$(sed -n 's/^\$ \(g++ .*app\.cpp .*pkg-config.*\)$/\1/p' "$source/README.md" | grep .)
    (cd "$scratch/readme" && eval "$command" && ./app) >"$scratch/printed"
    grep -q "recording since 12 s" "$scratch/printed" || fail "$(cat "$scratch/printed")"
fi

echo "- a program with another time_t does not compile"
foreign=("${flags[@]/-DTOLVEX_TIME_T_BYTES=*/-DTOLVEX_TIME_T_BYTES=2}")
[[ ${foreign[*]} == *TIME_T_BYTES=2* ]] || fail "tolvex.pc does not record the width of time_t"
[ -z "$tools" ] || foreign=("${flags[@]}" -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64)
if "${compile[@]}" -fsyntax-only "$consumer/main.cpp" "${foreign[@]}" 2>"$scratch/error.log"; then
    fail "it compiled"
fi
grep -q "This program's time_t differs" "$scratch/error.log" || fail "$(cat "$scratch/error.log")"

echo "- a program of an older standard is told so"
if "${compile[@]}" -std=c++17 -fsyntax-only "$consumer/main.cpp" "${flags[@]}" 2>"$scratch/error.log"; then
    fail "it compiled"
fi
grep -q "Tolvex needs C++20" "$scratch/error.log" || fail "$(cat "$scratch/error.log")"

echo "- Tolvex.h includes all installed headers"
for header in $(cd "$installed/include" && find Tolvex -name '*.h'); do
    grep -qx "#include \"$header\"" "$source/Tolvex/Tolvex.h" || [ "$header" = Tolvex/Tolvex.h ] ||
        fail "Tolvex.h lacks $header"
done

echo "- add_subdirectory"
cmake "${project[@]}" -B "$scratch/sub" "-DTOLVEX_SOURCE=$source" >"$scratch/sub.log"
cmake --build "$scratch/sub" --target consumer >"$scratch/sub.log"
expect "called back" "$scratch/sub/consumer"
cmake --install "$scratch/sub" --prefix "$scratch/nothing" >"$scratch/sub.log"
[ ! -e "$scratch/nothing" ] || fail "the subproject installs files"
