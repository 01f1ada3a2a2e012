#!/bin/sh
# Installs the build into a folder of its own and builds the examples against it in both ways that applications
# have: install_test.sh BUILD_DIR SOURCE_DIR COMPILER C_COMPILER
set -eu
build=$1 source=$2 compiler=$3 c_compiler=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig" LD_LIBRARY_PATH="$prefix/lib"

cmake --install "$build" --strip --prefix "$prefix" >/dev/null

# cmake --install moves a prefix; the package file must name the one it was installed to.
cmake -G Ninja -S "$source/examples" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_C_COMPILER="$c_compiler" >/dev/null
cmake --build "$work/cmake" >/dev/null
(cd "$work/cmake" && ctest --output-on-failure >"$work/fridge-test") || { cat "$work/fridge-test"; exit 1; }
grep -q '100% tests passed' "$work/fridge-test"
for example in thermometer thermometer-c glib; do
  "$work/cmake/$example" demo >"$work/$example"
  [ "$(wc -l <"$work/$example")" -gt 200 ] || { echo "$example told too little"; exit 1; }
done
"$work/cmake/fridge" C0-C1-5C-00-00-01 demo
"$work/cmake/logger" "$work/log" demo >"$work/logger"
grep -Eq '^rows: [1-9]' "$work/logger"
grep -q ' is lost$' "$work/logger"
! "$work/cmake/thermometer" capture:/nowhere 2>"$work/refused" || exit 1
grep -q '^/nowhere: ' "$work/refused"

# shellcheck disable=SC2046
"$compiler" -std=c++20 "$source/examples/thermometer.cpp" -o "$work/by-pkg-config" \
  $(pkg-config --cflags --libs brenloftsdk)
"$work/by-pkg-config" demo | cmp "$work/thermometer"

# The headers as strict applications compile them: each alone, and all of them in the next standard.
headers=$(echo "$prefix"/include/BrenloftSDK-*)
strict="-fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -I$headers -x c++"
(cd "$headers" && find . -name '*.h' -o -name '*.hpp') | sed 's|.*|#include "&"|' >"$work/all.cpp"
# shellcheck disable=SC2016
xargs -P "$(nproc)" -d '\n' -I '{}' sh -c 'echo "$1" | $2 -std=c++20 $3 -' each '{}' "$compiler" "$strict" <"$work/all.cpp"
# shellcheck disable=SC2086
"$compiler" -std=c++2b $strict "$work/all.cpp"
printf '#include <brenloft.h>\nbrenloft_event event = BRENLOFT_EVENT_INIT;\n' >"$work/header.c"
"$c_compiler" -std=c99 -fsyntax-only -Wall -Wpedantic -Werror "-I$headers" "$work/header.c"

library=$prefix/lib/libBrenloftSDK.so.1
[ -e "$library" ] || { echo "no $library"; exit 1; }
foreign=$(nm -DC --defined-only "$library" | cut -d' ' -f3- |
  sed -E 's/^(typeinfo name for|typeinfo for|vtable for|VTT for|non-virtual thunk to|guard variable for) //' |
  grep -Ev '^(BRL|brenloft::|brenloft_|SensorLog|platform::|kBRL|kBeacon|SAFETY_|Nearest|BrenloftSDKVersion|BRENLOFTSDK_1|decodeSensorFrame|dictionaryOf)' ||
  true)
[ -z "$foreign" ] || { echo "exported beside the interface:"; echo "$foreign" | head -20; exit 1; }
for name in NearestBeaconSensorFindingBuffer SAFETY_REGION_IDENTIFIER kBeaconExitTime kBRLBeaconRegionID \
  BrenloftSDKVersionNumber BrenloftSDKVersionString; do
  nm -D --defined-only "$library" | grep -q " $name" || { echo "not exported: $name"; exit 1; }
done
"$prefix/bin/brenloft" --version

# The Python package over it, as its wheel has it.
cp -r "$source/application/python" "$work/python"
(cd "$work/python" && PYTHONWARNINGS=ignore CC="$c_compiler" /usr/bin/python3 setup.py -q bdist_wheel >"$work/wheel" 2>&1) ||
  { cat "$work/wheel"; exit 1; }
/usr/bin/python3 -m zipfile -e "$work"/python/dist/*-abi3-*.whl "$work/site"
"$prefix/bin/brenloft" scan --source demo --history --container "$work/kept" >/dev/null
PYTHONPATH="$work/site" BRENLOFT_KEPT="$work/kept" BRENLOFT="$prefix/bin/brenloft" \
  /usr/bin/python3 -m pytest -q -p no:cacheprovider "$source/tests/application/python_test.py" >"$work/pytest" ||
  { cat "$work/pytest"; exit 1; }

# The service as its unit starts it, with another source and store.
unit=$prefix/lib/systemd/system/brenloft.service
settings=$prefix/etc/brenloft/brenloft.toml
sed -i 's/^source = .*/source = "demo"/' "$settings"
mkdir "$work/state"
sed -n 's/^ExecStart=//p' "$unit" | sed "s|%S|$work/state|" >"$work/start"
grep -q "^$prefix/bin/brenloft " "$work/start"
sh "$work/start" >"$work/told"
grep -q '"event":"lost"' "$work/told" || { echo "the service told nothing"; exit 1; }
"$prefix/bin/brenloft" log count --container "$work/state/brenloft" | grep -q '^[1-9]'
"$prefix/bin/brenloft" history count --container "$work/state/brenloft" | grep -q '^[1-9]'

# Somebody's settings outlive the next installation; the system's prefixes have them in /etc.
echo '# mine' >>"$settings"
cmake --install "$build" --prefix "$prefix" >/dev/null
tail -1 "$settings" | grep -q mine
DESTDIR=$work/stage cmake --install "$build" --prefix /usr/local >/dev/null
for file in etc/brenloft/brenloft.toml etc/dbus-1/system.d/brenloft.conf usr/local/lib/sysusers.d/brenloft.conf \
  usr/local/share/brenloft/hci.conf; do
  [ -e "$work/stage/$file" ] || { echo "no $file"; exit 1; }
done
