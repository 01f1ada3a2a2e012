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
for example in fridge fridge-c; do "$work/cmake/$example" c0:c1:5c:00:00:01 demo; done
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
export PYTHONPATH="$work/site" PYTHONDONTWRITEBYTECODE=1
/usr/bin/python3 "$source/examples/thermometer.py" demo | cmp - "$work/thermometer"
/usr/bin/python3 "$source/examples/fridge-python/fridge.py" c0:c1:5c:00:00:01 demo
if /usr/bin/python3 -c 'import mypy' 2>/dev/null; then
  strictly="/usr/bin/python3 -m mypy --strict --no-error-summary --cache-dir $work/mypy"
  MYPYPATH="$work/site" $strictly -p brenloft
  (cd "$source/examples" && MYPYPATH="$work/site" $strictly thermometer.py fridge-python/*.py)
else
  echo "the Python package's types were not checked: mypy is not installed"
fi
"$prefix/bin/brenloft" scan --source demo --history --container "$work/kept" >/dev/null
BRENLOFT_KEPT="$work/kept" BRENLOFT="$prefix/bin/brenloft" /usr/bin/python3 -m pytest -q -rs -p no:cacheprovider \
  "$source/tests/application/python_test.py" "$source/examples/fridge-python" >"$work/pytest" ||
  { cat "$work/pytest"; exit 1; }
grep '^SKIPPED' "$work/pytest" || true

# What is told of the examples is what they are, and the links of the installed pages lead somewhere.
/usr/bin/python3 - "$(dirname "$(find "$prefix" -name tutorial.md)")" <<'PYTHON'
import pathlib, re, sys
docs = pathlib.Path(sys.argv[1])
shown = re.findall(r"\[examples/(\S+)\]\(\S+\):\n\n```\w*\n(.*?)```", (docs / "tutorial.md").read_text(), re.S)
assert len(shown) > 5, "the tutorial shows too few programs"
for name, text in shown:
    assert text.strip("\n") in (docs / "../examples" / name).read_text(), f"the tutorial shows another {name}"
for page in docs.glob("*.md"):
    for link in re.findall(r"\]\(([^)#: ]+)[)#]", page.read_text()):
        assert (docs / link).exists(), f"{page.name}: no {link}"
PYTHON

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
