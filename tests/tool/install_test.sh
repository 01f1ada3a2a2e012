#!/bin/sh
# Installs the build into a folder of its own and builds the example against it in both ways that applications
# have: install_test.sh BUILD_DIR SOURCE_DIR COMPILER
set -eu
build=$1 source=$2 compiler=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig" LD_LIBRARY_PATH="$prefix/lib"

cmake --install "$build" --strip --prefix "$prefix" >/dev/null

# cmake --install moves a prefix; the package file must name the one it was installed to.
cmake -G Ninja -S "$source/examples" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/thermometer" simulated >"$work/by-cmake" 2>/dev/null

# shellcheck disable=SC2046
"$compiler" "$source/examples/thermometer.cpp" -o "$work/thermometer" \
  $(pkg-config --cflags --libs brenloftsdk)
"$work/thermometer" simulated >"$work/by-pkg-config" 2>/dev/null

cmp "$work/by-cmake" "$work/by-pkg-config"
grep -q ' is silent$' "$work/by-cmake"
grep -Eq '^[0-9A-F-]+ -?[0-9]+\.[0-9]{2}$' "$work/by-cmake"

library=$prefix/lib/libBrenloftSDK.so.1
[ -e "$library" ] || { echo "no $library"; exit 1; }
foreign=$(nm -DC --defined-only "$library" | cut -d' ' -f3- |
  sed -E 's/^(typeinfo name for|typeinfo for|vtable for|VTT for|non-virtual thunk to|guard variable for) //' |
  grep -Ev '^(BRL|SensorLog|platform::|kBRL|kBeacon|SAFETY_|Nearest|BrenloftSDKVersion|BRENLOFTSDK_1|decodeSensorFrame|dictionaryOf)' ||
  true)
[ -z "$foreign" ] || { echo "exported beside the interface:"; echo "$foreign" | head -20; exit 1; }
for name in NearestBeaconSensorFindingBuffer SAFETY_REGION_IDENTIFIER kBeaconExitTime kBRLBeaconRegionID \
  BrenloftSDKVersionNumber BrenloftSDKVersionString; do
  nm -D --defined-only "$library" | grep -q " $name" || { echo "not exported: $name"; exit 1; }
done
"$prefix/bin/brenloft" --version

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
