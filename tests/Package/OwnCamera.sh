#!/usr/bin/env bash
# Makes a product of a copy of examples/dashcam, by the steps of its README: a project of its own, which
# uses the installed library. Builds it and drives for two seconds.
source "$(dirname "$0")/common.sh"
example=$source/examples/dashcam

cmake --install "$build" --prefix "$scratch/installed" >"$scratch/install.log"
cp -r "$example" "$scratch/camera"
cd "$scratch/camera"

echo "- the files, without the folder in their includes"
sed -i 's|examples/dashcam/||' ./*.h ./*.cpp
if grep -n '#include.*examples' ./*.h ./*.cpp; then fail "an include of the example"; fi

echo "- the CMakeLists.txt of README.md, with the rest of its files"
sed -n '/^```cmake$/,/^```$/p' README.md | sed '/^```/d' >CMakeLists.txt
named=$(sed -n 's/^add_executable(camera \(.*\))  # and the others$/\1/p' CMakeLists.txt)
[ -n "$named" ] || fail "no list of files that ends with 'and the others'"
for file in $named; do
    [ -e "$file" ] || fail "the example has no $file"
done
sources=$(echo ./*.cpp)
sed -i "s|^add_executable(camera .*|add_executable(camera $sources)|" CMakeLists.txt
launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
cmake -G Ninja -B build "-DCMAKE_CXX_COMPILER=$compiler" "-DCMAKE_PREFIX_PATH=$scratch/installed" \
    "${launcher[@]}" >"$scratch/camera.log" 2>&1 || fail "$(cat "$scratch/camera.log")"
# Another version may be installed on this machine.
grep -q "^Tolvex_DIR:.*=$scratch/installed/" build/CMakeCache.txt || fail "another library was found"
cmake --build build --parallel 2 >"$scratch/camera.log" 2>&1 || fail "$(cat "$scratch/camera.log")"

echo "- a drive"
build/camera --folder "$scratch/clips" --seconds 0 >"$scratch/printed" 2>&1 &
camera=$!
for _ in {1..600}; do
    if grep -qs 1280x720 "$scratch/clips/dashcam.log"; then break; fi
    kill -0 $camera 2>/dev/null || break
    sleep 0.1
done
sleep 2
kill $camera || true  # the exit status tells more
wait $camera || fail "exit status $? of the drive: $(cat "$scratch/printed")"
grep -q "^Ignition off took" "$scratch/printed" || fail "$(cat "$scratch/printed")"
[ -s "$scratch/clips/index.html" ] || fail "no page"
