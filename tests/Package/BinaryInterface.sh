#!/usr/bin/env bash
# Compares the binary interface of the library, symbols and layout of all public types, with the
# stored one. Fails on a change that breaks programs built before, and asks for --update on an
# addition. docs/abi.md says which changes are allowed. Run in the arm build:
#   tests/Package/BinaryInterface.sh build/arm arm-linux-gnueabihf-g++ --update
source "$(dirname "$0")/common.sh"
stored=$source/abi/tolvex-1-armhf.abi

cmake --install "$build" --component dev --prefix "$scratch/dev" >/dev/null
headers=$(find "$scratch/dev/include" -name '*.h' -printf '%f,')

# What the installed headers define, in full, and only the names of the types of other libraries: with
# this label, which its library defines, abidw keeps those as bare names. No path, and nothing that
# depends on one.
label=$(grep -aom 1 'Artificial private types[ a-z]*' \
    "$(ldd "$(command -v abidw)" | awk '/libabigail/ { print $3 }')")
cat >"$scratch/outside.ini" <<EOF
[suppress_type]
  label = $label
  source_location_not_in = $headers
  drop = yes
EOF
abidw --suppressions "$scratch/outside.ini" --drop-private-types --exported-interfaces-only \
    --no-comp-dir-path --no-corpus-path --no-show-locs --no-parameter-names --no-elf-needed \
    --type-id-style hash "$library" |
    sed -E "s/^ *//; s| path='[^']*/(Tolvex/[^']*)'| path='\1'|" >"$scratch/built"

if [ "$mode" = --update ]; then
    cp "$scratch/built" "$stored"
    exit
fi
# The structure behind cpu_set_t has no name. The tool gives it the name of another one without a
# name, which differs from build to build.
cat >"$scratch/unnamed.ini" <<EOF
[suppress_type]
  name_regexp = ^l*div_t$
EOF
# abidiff takes two files that it cannot read for equal.
abilint --noout "$stored" && abilint --noout "$scratch/built" || fail "UNREADABLE: no interface"
abidiff --suppressions "$scratch/unnamed.ini" --no-added-syms "$stored" "$scratch/built" ||
    fail "INCOMPATIBLE: programs built before would break; see docs/abi.md"
abidiff --suppressions "$scratch/unnamed.ini" --harmless "$stored" "$scratch/built" ||
    fail "ADDED: compatible; store it with --update"
