#!/usr/bin/env bash
# Validates the desktop entry and AppStream data, builds the .deb with CPack,
# installs it with dpkg (as root; otherwise unpacks it) and starts the
# installed pelkam. Arguments: source dir, build dir.
set -euo pipefail
src="$1"
build="$2"
desktop-file-validate "$src/resources/linux/dev.tarvel.Pelkam.desktop"
appstreamcli validate --no-net "$src/resources/linux/dev.tarvel.Pelkam.metainfo.xml"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
(cd "$work" && cpack --config "$build/CPackConfig.cmake" -B "$work" >/dev/null)
deb="$(ls "$work"/pelkam_*.deb)"
dpkg-deb -I "$deb" | grep -E 'Depends:.*libqt5widgets5' >/dev/null || { echo "no Qt dependency in $deb"; exit 1; }
expected=(usr/bin/pelkam usr/bin/pelkam-cli usr/share/applications/dev.tarvel.Pelkam.desktop
  usr/share/metainfo/dev.tarvel.Pelkam.metainfo.xml usr/share/icons/hicolor/scalable/apps/dev.tarvel.Pelkam.svg
  usr/share/icons/hicolor/48x48/apps/dev.tarvel.Pelkam.png usr/share/icons/hicolor/256x256/apps/dev.tarvel.Pelkam.png)
listing="$(dpkg-deb -c "$deb")"
for f in "${expected[@]}"; do
  grep -q "\./$f\$" <<<"$listing" || { echo "missing $f in $deb"; exit 1; }
done
export QT_QPA_PLATFORM=offscreen
if [ "$(id -u)" -eq 0 ] && [ -z "${PELKAM_NO_DPKG_INSTALL:-}" ]; then
  dpkg -i "$deb" >/dev/null
  trap 'dpkg -r pelkam >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
  /usr/bin/pelkam --version | grep -q "0.2.0"
  /usr/bin/pelkam-cli --version | grep -q "0.2.0"
  desktop-file-validate /usr/share/applications/dev.tarvel.Pelkam.desktop
else
  dpkg-deb -x "$deb" "$work/root"
  "$work/root/usr/bin/pelkam" --version | grep -q "0.2.0"
fi
echo "package $(basename "$deb") is good"
